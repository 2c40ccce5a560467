#pragma once

#include "TestClock.h"
#include "TraceApplication.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <functional>

// Test programs that run a whole application do it on a private segment, semaphores, shared ring
// and settings store, so that a user's running tool never sees them.

// The private segment of a test program, one per tag, alive until the program ends.
template<int Tag> PrivateSegment& programSegment()
{
    static PrivateSegment segment(Tag);
    return segment;
}

inline TraceEndpoints privateEndpoints(PrivateSegment const& segment, const char* ringTag)
{
    return {segment.key, segment.semaphore, QString::fromStdString(TestNames::sharedRingName(ringTag))};
}

// The clock of the application's model: tests move it past a tick instead of waiting for one.
inline TestClock& appClock()
{
    static TestClock clock;
    return clock;
}

// The body of main(): builds the application as the program does and runs the test object, which
// takes the application in its constructor.
template<class Test> int execWithApplication(int argc, char** argv, PrivateSegment const& segment, const char* ringTag)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    Q_INIT_RESOURCE(icons);
    TraceApplication app(argc, argv, privateEndpoints(segment, ringTag));
    app.getModel().setClock(appClock().function());
    Test test(app);
    return QTest::qExec(&test, argc, argv);
}

// What a producer writes, taken by the application's model once its clock is past the tick in which the
// shared ring was fed: through every stage at once, or (asTimer) as one tick of its timer does, which
// leaves the rows alone while the view is paused.
inline void writeAndTake(TraceApplication& app, ZelTracer::TraceProducer& producer,
                         const std::vector<ZelTracer::FullEntry>& list, bool asTimer = false)
{
    for (const ZelTracer::FullEntry& e : list)
        producer.write(e);
    appClock().advance(LiveTraceModel::s_TimerInterval + 10);
    if (asTimer) {
        app.getModel().timerHit();
    } else {
        app.getModel().updateSharedData();
        app.getModel().updateInternalAndDipslay();
    }
    QCoreApplication::processEvents();
}

// A named child that the test cannot go on without.
template<class T> T* child(const QObject* parent, const char* name)
{
    T* object = parent->findChild<T*>(QLatin1String(name));
    if (!object)
        qFatal("no %s", name);
    return object;
}

// Runs the action while closing every message box that shows; returns "title/text" of each box closed.
inline QStringList closingModals(const std::function<void()>& action)
{
    QStringList texts;
    QTimer closer;
    QObject::connect(&closer, &QTimer::timeout, [&texts] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            texts << box->windowTitle() + QLatin1Char('/') + box->text();
            box->close();
        }
    });
    closer.start(20);
    action();
    return texts;
}
