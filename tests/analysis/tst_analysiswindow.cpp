#include "AppTestSupport.h"
#include "DetailsPane.h"
#include "LiveTraceModel.h"
#include "MainWindow.h"
#include "StatisticsPane.h"
#include "TraceProducer.h"

#include <QtTest>

#include <QAction>
#include <QHeaderView>
#include <QScreen>
#include <QTableView>
#include <QToolTip>

using namespace ZelTracer;

namespace {

PrivateSegment& segment()
{
    static PrivateSegment s(43);
    return s;
}

} // namespace

// The analysis parts as the tool's window has them: first start, settings, pause on error, tool tips.
class TestAnalysisWindow : public QObject
{
    Q_OBJECT

public:
    explicit TestAnalysisWindow(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase()
    {
        QSettings().clear();
        // Tracing is on before any window comes, so that the window's monitor sees no edge to act on.
        app.starttrace();
    }
    void cleanup() { window.reset(); }
    void firstStartAndRememberedPanes();
    void pauseOnErrorShowsTheRow();
    void toolTipsOnlyForCutCells();

private:
    QTableView* open()
    {
        window = std::make_unique<gui::MainWindow>(nullptr, app);
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            qFatal("window not exposed");
        return window->findChild<QTableView*>(QStringLiteral("liveView"));
    }
    void write(int calls, std::int32_t status, const char* address = "GPIB0::22::INSTR")
    {
        for (int i = 0; i < calls; ++i) {
            for (std::uint32_t kind : {0u, 1u}) {
                FullEntry e = makeEntry(nextId, 100, kind, "viRead(7, \"" + std::to_string(nextId) + "\\n\", 1024, 2)");
                e.status = kind == 0 ? 0 : status;
                std::strncpy(e.address, address, sizeof e.address - 1);
                QCOMPARE(producer.write(e), TraceProducer::Outcome::Written);
            }
            ++nextId;
        }
        QTest::qWait(LiveTraceModel::s_TimerInterval + 10);
        app.getModel().updateSharedData();
        app.getModel().updateInternalAndDipslay();
        QCoreApplication::processEvents();
    }

    TraceApplication& app;
    TraceProducer producer {segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore};
    std::unique_ptr<gui::MainWindow> window;
    std::uint64_t nextId = 1;
};

void TestAnalysisWindow::firstStartAndRememberedPanes()
{
    QTableView* view = open();
    const QSize screen = QGuiApplication::primaryScreen()->availableGeometry().size();
    QVERIFY2(window->width() > 600 && window->height() > 400, "larger than the form at first start");
    QVERIFY(window->width() <= screen.width() && window->height() <= screen.height());
    const int command = view->columnViewportPosition(LiveTraceModel::CommandColumn);
    QVERIFY2(command >= 0 && command < view->viewport()->width() - 200, "the Command column is in sight");
    auto* details = window->findChild<gui::DetailsPane*>();
    auto* statistics = window->findChild<gui::StatisticsPane*>();
    QVERIFY(details->isVisible());
    QVERIFY(!statistics->isVisible());

    details->toggleViewAction()->trigger();
    statistics->toggleViewAction()->trigger();
    window->resize(640, 480);
    window.reset();
    open();
    QCOMPARE(window->size(), QSize(640, 480));
    QVERIFY(!window->findChild<gui::DetailsPane*>()->isVisible());
    QVERIFY(window->findChild<gui::StatisticsPane*>()->isVisible());
}

void TestAnalysisWindow::pauseOnErrorShowsTheRow()
{
    app.clearbuffer();
    QTableView* view = open();
    window->findChild<QAction*>(QStringLiteral("actionPauseOnError"))->setChecked(true);
    write(60, 0);
    write(1, -1073807339);
    write(5, 0);
    QVERIFY(window->findChild<QAction*>(QStringLiteral("actionPause"))->isChecked());
    const QModelIndex current = view->currentIndex();
    QCOMPARE(current.row(), 60);
    QVERIFY(view->viewport()->rect().contains(view->visualRect(current).center()));
    window->findChild<QAction*>(QStringLiteral("actionPause"))->setChecked(false);
}

void TestAnalysisWindow::toolTipsOnlyForCutCells()
{
    app.clearbuffer();
    QTableView* view = open();
    const QString address = QStringLiteral("TCPIP0::a-rather-long-host-name.example.com::hislip0::INSTR");
    write(1, 0, address.toLatin1().constData());
    view->setColumnWidth(LiveTraceModel::AddressColumn, 80);
    auto hover = [view](int column) {
        const QPoint at = view->visualRect(view->model()->index(0, column)).center();
        QHelpEvent event(QEvent::ToolTip, at, view->viewport()->mapToGlobal(at));
        QCoreApplication::sendEvent(view->viewport(), &event);
    };
    hover(LiveTraceModel::DurationColumn);
    QVERIFY(!QToolTip::isVisible());
    hover(LiveTraceModel::AddressColumn);
    QVERIFY(QToolTip::isVisible());
    QCOMPARE(QToolTip::text(), address);
}

int main(int argc, char** argv)
{
    return execWithApplication<TestAnalysisWindow>(argc, argv, segment(), "analysis");
}

#include "tst_analysiswindow.moc"
