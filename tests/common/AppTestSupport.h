#pragma once

#include "TraceApplication.h"
#include "TraceTestSupport.h"

#include <QTemporaryDir>
#include <QTest>

// Test programs that run a whole application do it on a private segment, semaphores, shared ring
// and settings store, so that a user's running tool never sees them.

inline TraceEndpoints privateEndpoints(PrivateSegment const& segment, const char* ringTag)
{
    return {segment.key, segment.semaphore, QString::fromStdString(TestNames::sharedRingName(ringTag))};
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
    Test test(app);
    return QTest::qExec(&test, argc, argv);
}
