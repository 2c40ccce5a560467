#include "AppTestSupport.h"
#include "CallStatistics.h"
#include "CaptureWindow.h"
#include "CellToolTips.h"
#include "DetailsPane.h"
#include "FindBar.h"
#include "LiveTableView.h"
#include "MainWindow.h"
#include "RecordDetails.h"
#include "StatisticsPane.h"
#include "TraceProducer.h"
#include "TraceTableArea.h"

#include <QtTest>
#include <QtWidgets>

using namespace ZelTracer;
using gui::FindBar;

namespace {

constexpr auto segment = programSegment<43>;
constexpr std::int32_t s_Timeout = static_cast<std::int32_t>(0xBFFF0015u);
constexpr int s_Command = LiveTraceModel::CommandColumn;

QString operator""_q(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

// A golden text, one element per line; in a table "|" stands for a tab.
QStringList lines(const QString& text, bool table = false)
{
    return (table ? QString(text).replace(QLatin1Char('|'), QLatin1Char('\t')) : text).split(QLatin1Char('\n'));
}

struct Call
{
    std::string text;
    std::int32_t status = 0;
    const char* address = "GPIB0::22::INSTR";
    double duration = 0.001234567;
};

// Each call and its return as thread 101 of process 100 writes them; ids never repeat in a run.
std::vector<FullEntry> records(const std::vector<Call>& calls)
{
    static std::uint64_t id = 0;
    std::vector<FullEntry> list;
    for (const Call& c : calls) {
        ++id;
        for (std::uint32_t kind : {0u, 1u}) {
            FullEntry e = makeCall(100, 101, id, kind, c.text, kind ? c.status : 0);
            e.duration = kind ? c.duration : 0;
            std::strncpy(e.address, c.address, sizeof e.address - 1);
            list.push_back(e);
        }
    }
    return list;
}

// Calls of texts of their own, so that none collapse; the one at errorAt fails.
std::vector<Call> distinct(int count, int errorAt = -1, const char* address = "GPIB0::22::INSTR")
{
    std::vector<Call> list;
    for (int i = 0; i < count; ++i)
        list.push_back({"viRead(7, \"" + std::to_string(i) + "\")", i == errorAt ? s_Timeout : 0, address});
    return list;
}

// Records as read back from a file.
capture::Capture captured(const std::vector<Call>& calls)
{
    capture::Capture c;
    c.records = records(calls);
    return c;
}

// Records numbered as the live model numbers its local copies.
struct NumberedRing
{
    explicit NumberedRing(int capacity)
        : ring(static_cast<unsigned>(capacity))
    { }
    void push(std::vector<FullEntry> list)
    {
        for (FullEntry& e : list) {
            e.reserved = ++sequence;
            ring.push_back(e);
        }
    }
    RingBufferLocalMem<FullEntry> ring;
    std::uint64_t sequence = 0;
};

const std::vector<Call> s_Table = {
    {"viOpen(1, \"TCPIP0::192.168.1.10::inst0::INSTR\", 0, 0, 7)", 0, "TCPIP0::192.168.1.10::inst0::INSTR"},
    {"viWrite(7, \"*IDN?\\n\", 6, 6)"},
    {"viRead(7, \"Zelbrook,DMM\\n\", 1024, 13)"},
    {"viWrite(7, \"MEAS:VOLT?\\n\", 11, 11)"},
    {"viRead(7, \"\", 1024, 0)", s_Timeout},
    {"viWrite(7, \"SYST:ERR?\\n\", 10, 10)"},
    {"viRead(7, \"-113,\\\"Undefined header\\\"\\n\", 1024, 24)"},
    {"viOpen(1, \"ASRL1::INSTR\", 0, 0, 0)", static_cast<std::int32_t>(0xBFFF0011u), "ASRL1::INSTR"},
    {"viClose(7)"},
};

void type(FindBar* find, const QString& text, bool regex)
{
    find->activate();
    find->findChild<QCheckBox*>()->setChecked(regex);
    find->findChild<QLineEdit*>()->setText(text);
}

// The rows of the bar's table that the moves make current, one after the other.
QList<int> moves(FindBar* find, void (FindBar::*move)(), int count)
{
    QList<int> rows;
    for (int i = 0; i < count; ++i) {
        (find->*move)();
        rows << static_cast<QTableView*>(find->parentWidget())->currentIndex().row();
    }
    return rows;
}

} // namespace

// Reading a call whole, finding it, and the figures over all calls: first the texts alone, then in
// a capture window, then in the tool's window on a private segment.
class TestAnalysis : public QObject
{
    Q_OBJECT

public:
    explicit TestAnalysis(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
        // A ring of 40 calls, so that rows leave its top after a few. Tracing is on before any window
        // comes, so that the window's monitor sees no edge to act on.
        app.getModel().setSharedRingSize(24 + 1232 * 81);
        app.starttrace();
    }
    void cleanup()
    {
        window.reset();
        app.clearbuffer();
    }

    // A call and its return pair by process, thread and id anywhere in the ring; an open call says so.
    void callDetails()
    {
        const char* text = "viWrite(7, \"*RST\r\n\", 6)";
        NumberedRing r(8);
        r.push({makeCall(100, 7, 1, 0, text), makeCall(100, 8, 1, 0, "viClear(7)"),
                makeCall(100, 8, 1, 1, "viClear(7)"), makeCall(100, 7, 1, 1, text, s_Timeout),
                makeCall(100, 7, 9, 0, text)});
        // Timestamps are 1700000000 + id seconds.
        const QString record = R"(%1
Id: %2
Process: 100  Thread: 7
Session: 7 (0x00000007)
Address: GPIB0::22::INSTR
Timestamp: 2023-11-14 22:13:2%2.250000
Elapsed time: 1.500000 s
%3Command (23 characters):
viWrite(7, "*RST\r\n", 6)
Function: viWrite
Argument 1: 7
Argument 2: "*RST\r\n" (6 bytes)
  SCPI: *RST
Argument 3: 6
Text dump:
  0000  76 69 57 72 69 74 65 28 37 2c 20 22 2a 52 53 54  |viWrite(7, "*RST|
  0010  0d 0a 22 2c 20 36 29                             |..", 6)|)"_q;
        const QString call = record.arg("Call record"_q).arg(1).arg(QString());
        const QString result = "Duration: 1.235 ms (0.001234567 s)\nStatus: VI_ERROR_TMO (0xBFFF0015)\n"_q;
        const QStringList completed
            = lines("viWrite on GPIB0::22::INSTR: VI_ERROR_TMO (0xBFFF0015) after 1.235 ms\n\n"_q + call + "\n\n"_q
                    + record.arg("Return record (kind 1)"_q).arg(1).arg(result));
        QCOMPARE(RecordDetails::callLines(r.ring, r.ring(0)), completed);
        QCOMPARE(RecordDetails::callLines(r.ring, r.ring(3)), completed);
        QCOMPARE(RecordDetails::callLines(r.ring, r.ring(4)),
                 lines("viWrite on GPIB0::22::INSTR: not returned yet\n\n"_q
                       + record.arg("Call record"_q).arg(9).arg(QString()) + "\n\nNot returned yet"_q));
        FullEntry quick = makeCall(100, 7, 2, 1, text);
        quick.duration = 7.27399993e-06;
        QVERIFY(RecordDetails::recordLines(quick).contains("Duration: 7.3 \u00b5s (0.000007274 s)"_q));
    }

    void command_data(); // after the class: its "#" in raw strings would confuse moc
    void command()
    {
        QFETCH(QByteArray, text);
        QFETCH(QStringList, lines);
        QCOMPARE(QStringList(RecordDetails::commandLines(text).mid(2)), lines);
    }

    // Returns count, a call still open does not; writes count under their first SCPI header.
    void statistics()
    {
        const char* dmm = "GPIB0::22::INSTR";
        const char* scope = "TCPIP0::192.168.1.10::inst0::INSTR";
        NumberedRing r(16);
        r.push(records({{R"(viOpen(1, "GPIB0::22::INSTR", 0, 0, 7))", 0, "", 0.004},
                        {R"(viWrite(7, "MEAS:VOLT?\n", 11, 11))", 0, dmm, 0.0015},
                        {R"(viWrite(7, ":SYST:ERR?;*OPC?\n", 17, 17))", 0, dmm, 0.002},
                        {R"(viWrite(7, "MEAS:VOLT? (@101)\n", 18, 18))", 0, dmm, 0.003},
                        {R"(viRead(9, "", 1024, 0))", s_Timeout, scope, 2.0},
                        {R"(viRead(9, "1\n", 1024, 2))", 0, scope, 0.006}}));
        r.push({makeCall(100, 101, 7, 0, "viClose(7)")});
        CallStatistics stats;
        stats.update(r.ring);
        QCOMPARE(stats.toText(),
                 lines(R"(Operation|Calls|Errors|Min|Mean|P95|Max
viOpen|1|0|4.000 ms|4.000 ms|4.000 ms|4.000 ms
viRead|2|1|6.000 ms|1.003 s|2.000 s|2.000 s
viWrite :SYST:ERR?|1|0|2.000 ms|2.000 ms|2.000 ms|2.000 ms
viWrite MEAS:VOLT?|2|0|1.500 ms|2.250 ms|3.000 ms|3.000 ms
Address|Calls|Errors|Min|Mean|P95|Max
(no address)|1|0|4.000 ms|4.000 ms|4.000 ms|4.000 ms
GPIB0::22::INSTR|3|0|1.500 ms|2.167 ms|3.000 ms|3.000 ms
TCPIP0::192.168.1.10::inst0::INSTR|2|1|6.000 ms|1.003 s|2.000 s|2.000 s)"_q,
                       true));
    }

    void statisticsFollowTheRing_data()
    {
        QTest::addColumn<int>("capacity");
        QTest::addColumn<int>("batch");
        QTest::newRow("one record at a time, small ring") << 5 << 1;
        QTest::newRow("batches larger than the ring") << 7 << 11;
        QTest::newRow("batches that wrap the ring partly") << 13 << 4;
    }
    // Whatever arrives and leaves between updates, and across a clear, counts as if counted afresh.
    void statisticsFollowTheRing()
    {
        QFETCH(int, capacity);
        QFETCH(int, batch);
        NumberedRing r(capacity);
        CallStatistics followed;
        const char* texts[]
            = {"viWrite(1, \"*IDN?\\n\")", "viRead(1, \"x\")", "viWrite(1, \"MEAS?\\n\")", "viClear(1)"};
        for (int n = 0; n < 60; ++n) {
            if (n == 37)
                r = NumberedRing(capacity); // the model's clear: numbering starts again
            FullEntry e = makeCall(100, 7, static_cast<std::uint64_t>(n / 2), static_cast<std::uint32_t>(n % 2),
                                   texts[n / 2 % 4], n % 6 == 1 ? s_Timeout : 0);
            e.duration = 0.001 * (n % 5 + 1);
            r.push({e});
            if (n % batch == batch - 1) {
                followed.update(r.ring);
                CallStatistics fresh;
                fresh.update(r.ring);
                QCOMPARE(followed.toText(), fresh.toText());
                QCOMPARE(followed.callCount(), fresh.callCount());
            }
        }
    }

    void find_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<bool>("regex");
        QTest::addColumn<int>("from");
        QTest::addColumn<bool>("forward");
        QTest::addColumn<QList<int>>("rows");
        QTest::addColumn<QString>("status");
        using L = QList<int>;
        QTest::newRow("command text, any case") << "viread"_q << false << 1 << true << L {2, 4, 6, 2} << "3 matches"_q;
        QTest::newRow("status name, backwards, around")
            << "VI_ERROR"_q << false << 6 << false << L {4, 7, 4} << "2 matches"_q;
        QTest::newRow("address") << "asrl1"_q << false << 0 << true << L {7, 7} << "1 match"_q;
        QTest::newRow("regular expression") << "meas|syst:e"_q << true << 6 << true << L {3, 5, 3} << "2 matches"_q;
        QTest::newRow("no match leaves the row") << "zzz"_q << false << 2 << true << L {2} << "No match"_q;
        QTest::newRow("invalid expression") << "("_q << true << 2 << true << L {2} << "missing closing parenthesis"_q;
        QTest::newRow("next error") << ""_q << false << -1 << true << L {4, 7, 4} << ""_q;
        QTest::newRow("previous error") << ""_q << false << 5 << false << L {4, 7, 4} << ""_q;
    }
    void find()
    {
        QFETCH(QString, pattern);
        QFETCH(bool, regex);
        QFETCH(int, from);
        QFETCH(bool, forward);
        QFETCH(QList<int>, rows);
        QFETCH(QString, status);
        gui::CaptureWindow w(app, "capture"_q, captured(s_Table));
        if (from >= 0)
            w.table()->setCurrentIndex(w.model().index(from, s_Command));
        type(w.findBar(), pattern, regex);
        QCOMPARE(w.findBar()->statusText(), status);
        void (FindBar::*move)() = pattern.isEmpty() ? (forward ? &FindBar::nextError : &FindBar::previousError)
                                                    : (forward ? &FindBar::findNext : &FindBar::findPrevious);
        QCOMPARE(moves(w.findBar(), move, rows.size()), rows);
    }

    void onlyErrors_data()
    {
        QTest::addColumn<bool>("collapse");
        QTest::addColumn<bool>("onlyErrors");
        QTest::addColumn<QString>("rows");
        // A success hidden between two failures parts them: only the two adjacent ones collapse.
        QTest::newRow("errors, collapsed where adjacent") << true << true << "viRead(7)|2 x viRead(7)"_q;
        QTest::newRow("errors, not collapsed") << false << true << "viRead(7)|viRead(7)|viRead(7)"_q;
        QTest::newRow("all rows, collapsed") << true << false << "viRead(7)|viWrite(7)|2 x viRead(7)|viClose(7)"_q;
    }
    void onlyErrors()
    {
        QFETCH(bool, collapse);
        QFETCH(bool, onlyErrors);
        QFETCH(QString, rows);
        const Call error {"viRead(7)", s_Timeout};
        gui::CaptureWindow w(app, "capture"_q, captured({error, {"viWrite(7)"}, error, error, {"viClose(7)"}}));
        w.model().setCollapseSameCommands(collapse);
        w.model().setOnlyErrors(onlyErrors);
        QStringList commands;
        for (int r = 0; r < w.model().rowCount(); ++r)
            commands << w.model().index(r, s_Command).data().toString();
        QCOMPARE(commands.join(QLatin1Char('|')), rows);
        if (collapse && !onlyErrors)
            QCOMPARE(gui::DetailsPane::rowLines(w.model(), 2).value(1),
                     "This row stands for 2 identical calls in a row, 2.469 ms in all; below is the last."_q);
    }

    // The panes follow a return that arrives later; an error row keeps dark text on its light red
    // whatever the theme.
    void detailsFollowTheCall()
    {
        QTableView* view = open();
        get<QDockWidget>("statisticsPane")->show();
        std::vector<FullEntry> list = records({{"viRead(7)", s_Timeout}, {"viWrite(7, \"*CLS\\n\")"}});
        const FullEntry lateReturn = list[1];
        list.erase(list.begin() + 1);
        write(list);
        get<FindBar>("findBar")->nextError();
        QCOMPARE(view->currentIndex().row(), -1); // no error shown yet
        view->setCurrentIndex(view->model()->index(0, s_Command));
        auto* returnText = get<QPlainTextEdit>("detailsReturn");
        QCOMPARE(returnText->toPlainText(), "Not returned yet"_q);
        write({lateReturn});
        QCOMPARE(view->currentIndex().row(), 0);
        QVERIFY(returnText->toPlainText().startsWith("Return record (kind 1)\nId: "_q));
        auto foreground = [view](int row) { return view->model()->index(row, s_Command).data(Qt::ForegroundRole); };
        QVERIFY(foreground(2).value<QColor>() == Qt::black && !foreground(1).isValid());
        QCOMPARE(get<gui::StatisticsPane>("statisticsPane")->statistics().toText().value(1),
                 "viRead\t1\t1\t1.235 ms\t1.235 ms\t1.235 ms\t1.235 ms"_q);
    }

    // Rows leave the top when the ring is full; moves still start from the row the reader is on.
    void errorsAfterRowsLeftTheTop()
    {
        QTableView* view = open();
        write(records(distinct(40, 2)));
        view->setCurrentIndex(view->model()->index(2, s_Command));
        write(records(distinct(2, 0))); // two calls leave the top
        QCOMPARE(view->currentIndex().row(), 0);
        auto* find = get<FindBar>("findBar");
        QCOMPARE(moves(find, &FindBar::nextError, 3), (QList<int> {38, 0, 38}));
        type(find, R"(viread(7, "1"))"_q, false);
        QCOMPARE(moves(find, &FindBar::findPrevious, 1), QList<int> {39});
    }

    void firstStartAndRememberedPanes()
    {
        QSettings().clear();
        QTableView* view = open();
        const QSize screen = QGuiApplication::primaryScreen()->availableGeometry().size();
        QVERIFY2(window->width() > 600 && window->height() > 400, "larger than the form at first start");
        QVERIFY(window->width() <= screen.width() && window->height() <= screen.height());
        const int command = view->columnViewportPosition(s_Command);
        QVERIFY2(command >= 0 && command < view->viewport()->width() - 200, "the Command column is in sight");
        auto visible = [this](const char* pane) { return get<QDockWidget>(pane)->isVisible(); };
        QVERIFY(visible("detailsPane") && !visible("statisticsPane"));
        for (const char* pane : {"detailsPane", "statisticsPane"})
            get<QDockWidget>(pane)->toggleViewAction()->trigger();
        window.reset();
        open();
        QVERIFY(!visible("detailsPane") && visible("statisticsPane"));
    }

    // A table the width of a first window gives the README's typical values room, in the bold of the
    // current call's rows; a narrower one (a first window at a display scale of 2) still shows the
    // common status whole.
    void cellsWholeAtFirstSize_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("cut"); // the columns whose cell is cut
        QTest::newRow("first window") << 1200 << "VI_ERROR_RSRC_NFOUND"_q
                                      << ""_q;
        QTest::newRow("scale 2 on a 1920 px screen") << 960 << "VI_SUCCESS"_q
                                                     << "Address "_q;
    }
    void cellsWholeAtFirstSize()
    {
        QFETCH(int, width);
        QFETCH(QString, status);
        QFETCH(QString, cut);
        FullEntry e = makeEntry(1, 100, 1, "viOpen(0x00000001, \"TCPIP0::192.168.1.10::inst0::INSTR\", 0, 0)");
        std::strcpy(e.address, "TCPIP0::192.168.1.10::inst0::INSTR");
        e.status = status == "VI_SUCCESS"_q ? 0 : static_cast<std::int32_t>(0xBFFF0011u);
        e.duration = 1.5;
        LiveTraceModel model(nullptr, app.getChannelControl());
        model.loadRecords({e});
        QMainWindow w;
        w.setFont(QFont("Sans Serif"_q, 9)); // a desktop's; the offscreen platform's is larger
        auto* view = new gui::LiveTableView(&w);
        w.setCentralWidget(view);
        gui::TraceTableArea area(w, *view, model);
        area.sizeColumns(width);
        w.resize(width, 760);
        QCOMPARE(model.data(model.index(0, LiveTraceModel::StatusColumn)).toString(), status);
        QFont bold = view->font();
        bold.setBold(true);
        QString shown;
        for (int column : {LiveTraceModel::TimestampColumn, LiveTraceModel::AddressColumn,
                           LiveTraceModel::DurationColumn, LiveTraceModel::StatusColumn}) {
            const QString text = model.data(model.index(0, column)).toString();
            if (gui::CellToolTips::isCut(text, QFontMetrics(bold), view->horizontalHeader()->sectionSize(column)))
                shown += model.headerData(column, Qt::Horizontal).toString() + QLatin1Char(' ');
        }
        QCOMPARE(shown, cut);
    }

    // The error that paused the view is current and in sight, and its cut address shows whole as a tool tip.
    void pauseOnErrorShowsTheRow()
    {
        QTableView* view = open();
        get("actionPauseOnError")->setChecked(true);
        const QString address = "TCPIP0::a-rather-long-host-name.example.com::hislip0::INSTR"_q;
        write(records(distinct(40, 34, qPrintable(address))));
        const QModelIndex current = view->currentIndex();
        QCOMPARE(current.row(), 34);
        QVERIFY(view->viewport()->rect().contains(view->visualRect(current).center()));
        auto tip = [view, current](int column) {
            const QPoint at = view->visualRect(current.siblingAtColumn(column)).center();
            QHelpEvent event(QEvent::ToolTip, at, view->viewport()->mapToGlobal(at));
            QCoreApplication::sendEvent(view->viewport(), &event);
            return QToolTip::isVisible() ? QToolTip::text() : QString();
        };
        QCOMPARE(tip(LiveTraceModel::DurationColumn), QString());
        QCOMPARE(tip(LiveTraceModel::AddressColumn), address);
    }

private:
    QTableView* open()
    {
        window = std::make_unique<gui::MainWindow>(nullptr, app);
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            qFatal("window not exposed");
        return get<QTableView>("liveView");
    }
    template<class T = QAction> T* get(const char* name) const { return child<T>(window.get(), name); }
    void write(const std::vector<FullEntry>& list) { writeAndTake(app, producer, list); }

    TraceApplication& app;
    TraceProducer producer {segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore};
    std::unique_ptr<gui::MainWindow> window;
};

// The lines after the command's length and text.
void TestAnalysis::command_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("block transfer") << QByteArray(R"(viRead(7, "#210\x00\x01\x02\xfe\xff\r\nA,C\n", 1024, 13))")
                                    << lines(R"(Function: viRead
Argument 1: 7
Argument 2: "#210\x00\x01\x02\xfe\xff\r\nA,C\n" (15 bytes)
  Block #210: 10 bytes
    0000  00 01 02 fe ff 0d 0a 41 2c 43                    |.......A,C|
Argument 3: 1024
Argument 4: 13)"_q);
    QTest::newRow("raw control bytes, a quote and a comma inside the string")
        << QByteArray("viWrite(1, \"A\"B,\r\n\x01\xb5\", 7)") << lines(R"(Function: viWrite
Argument 1: 1
Argument 2: "A\"B,\r\n\x01\xb5" (8 bytes)
  SCPI: A"B,\r\n\x01µ
Argument 3: 7)"_q);
    QTest::newRow("SCPI commands split at semicolons outside SCPI strings")
        << QByteArray(R"(viPrintf(3, ":DISP:TEXT 'a;b';MEAS:VOLT? (@101); *OPC?\n"))") << lines(R"(Function: viPrintf
Argument 1: 3
Argument 2: ":DISP:TEXT 'a;b';MEAS:VOLT? (@101); *OPC?\n" (42 bytes)
  SCPI: :DISP:TEXT 'a;b'
  SCPI: MEAS:VOLT? (@101)
  SCPI: *OPC?)"_q);
    QTest::newRow("block cut short, a header that is no block before it")
        << QByteArray(R"(viRead(1, "#9123 #3100abc"))") << lines(R"(Function: viRead
Argument 1: 1
Argument 2: "#9123 #3100abc" (14 bytes)
  Block #3100: 100 bytes declared, only 3 present
    0000  61 62 63                                         |abc|)"_q);
    QTest::newRow("no argument list") << QByteArray("viFlush") << QStringList();
}

int main(int argc, char** argv)
{
    return execWithApplication<TestAnalysis>(argc, argv, segment(), "analysis");
}

#include "tst_analysis.moc"
