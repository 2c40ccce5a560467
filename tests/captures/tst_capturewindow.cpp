#include "AboutBox.h"
#include "AppTestSupport.h"
#include "CaptureTestSupport.h"
#include "CaptureWindow.h"
#include "UnixSignalQuit.h"

#include <QAction>
#include <QMessageBox>
#include <QTableView>
#include <QtTest>

#include <csignal>

namespace {

PrivateSegment& segment()
{
    static PrivateSegment s(52);
    return s;
}

// Runs open(), closes the message box it shows and returns the box's text (saved as a picture under
// ZEL_SCREENSHOT_DIR when that is set).
template<class Open> QString answerMessageBox(Open open, QString const& picture)
{
    QString text;
    QTimer::singleShot(0, [&text, picture] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            text = box->text();
            const QString dir = qEnvironmentVariable("ZEL_SCREENSHOT_DIR");
            if (!dir.isEmpty())
                box->grab().save(dir + QLatin1Char('/') + picture);
            box->close();
        }
    });
    open();
    return text;
}

} // namespace

class TestCaptureWindow : public QObject
{
    Q_OBJECT

public:
    explicit TestCaptureWindow(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase() { useUtc(); }

    // A capture in each format opens read-only beside the live view, titled by its file, with the
    // rows it was exported with; exported again from the window it gives the same file.
    void opensBesideTheLiveView_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<QString>("fileName");
        QTest::newRow("csv") << int(capture::Format::Csv) << QStringLiteral("station7.csv");
        QTest::newRow("saved view") << int(capture::Format::ViewText) << QStringLiteral("view.txt");
    }
    void opensBesideTheLiveView()
    {
        QFETCH(int, format);
        QFETCH(QString, fileName);
        const QString name = dir.filePath(fileName);
        const QByteArray bytes = exported(knownRecords(), capture::Format(format), app.getChannelControl());
        QFile file(name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        const int liveRows = app.getModel().rowCount();

        QPointer<gui::CaptureWindow> window = gui::CaptureWindow::open(app, name);
        QVERIFY(window);
        QVERIFY(window->windowTitle().startsWith(fileName));
        QCOMPARE(window->model().rowCount(), 5);
        QCOMPARE(window->table()->model(), &window->model());
        QCOMPARE(app.getModel().rowCount(), liveRows);
        QVERIFY(!app.getModel().isRunning());

        const QString again = dir.filePath(QStringLiteral("again"));
        QVERIFY(gui::CaptureWindow::exportView(window, window->model(), again, capture::Format(format)));
        QFile back(again);
        QVERIFY(back.open(QIODevice::ReadOnly));
        QCOMPARE(back.readAll(), bytes);

        const QString shots = qEnvironmentVariable("ZEL_SCREENSHOT_DIR");
        if (!shots.isEmpty()) {
            window->table()->selectRow(4);
            window->grab().save(shots + QStringLiteral("/capture-%1.png").arg(QLatin1String(QTest::currentDataTag())));
        }
        window->close();
        QTRY_VERIFY(!window);
    }

    // Of a capture longer than a view the newest part shows first; one action brings the part with
    // the first failed call and makes that call current.
    void longCaptureFindsTheFailedCall()
    {
        const QString name = dir.filePath(QStringLiteral("hour.csv"));
        QFile file(name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(longTable());
        file.close();
        QPointer<gui::CaptureWindow> window = gui::CaptureWindow::open(app, name);
        QVERIFY(window);
        QCOMPARE(window->partStart(), 52u);
        QAction* failed = nullptr;
        for (QAction* action : window->findChildren<QAction*>())
            failed = action->text() == QStringLiteral("Part with the first &failed call") ? action : failed;
        QVERIFY(failed && failed->isEnabled());
        failed->trigger();
        QCOMPARE(window->partStart(),
                 capture::CaptureReader::s_MaxRecords + 51 - capture::CaptureReader::s_MaxRecords / 2);
        const LiveTraceModel::Row* current = window->model().displayRow(window->table()->currentIndex().row());
        QVERIFY(current && current->entry->status < 0);
        window->close();
    }

    // A file that is not a capture is refused with a message box and opens nothing.
    void refusesForeignFileWithMessage()
    {
        const QString name = dir.filePath(QStringLiteral("notes.txt"));
        QFile file(name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("shopping list\n");
        file.close();
        const QString shown
            = answerMessageBox([&] { QVERIFY(!gui::CaptureWindow::open(app, name)); }, QStringLiteral("refusal.png"));
        QVERIFY2(shown.contains(QStringLiteral("notes.txt is not a capture")), qPrintable(shown));
    }

    // The recorder's text is the window's "Save view" text, byte for byte.
    void viewTextIsSaveViewText()
    {
        app.getModel().loadRecords(knownRecords());
        QCOMPARE(exported(knownRecords(), capture::Format::ViewText, app.getChannelControl()),
                 app.getBuffer().toUtf8());
        app.clearbuffer();
    }

    // Ctrl+C, SIGTERM and SIGHUP reach the event loop as a request to quit, with their number.
    void signalsBecomeQuitRequests_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGHUP") << SIGHUP;
    }
    void signalsBecomeQuitRequests()
    {
        QFETCH(int, signalNumber);
        UnixSignalQuit quit;
        QVERIFY(quit.isActive());
        QSignalSpy spy(&quit, &UnixSignalQuit::quitRequested);
        std::raise(signalNumber);
        QVERIFY(spy.wait(5000));
        QCOMPARE(spy.first().first().toInt(), signalNumber);
    }

    void aboutBoxNamesTheVersion()
    {
        const QString shown = answerMessageBox([] { gui::showAbout(nullptr); }, QStringLiteral("about.png"));
        QVERIFY2(shown.contains(QStringLiteral("ZelVisa Trace Tool 5.12.9")), qPrintable(shown));
    }

private:
    TraceApplication& app;
    QTemporaryDir dir;
};

int main(int argc, char** argv)
{
    return execWithApplication<TestCaptureWindow>(argc, argv, segment(), "capwin");
}

#include "tst_capturewindow.moc"
