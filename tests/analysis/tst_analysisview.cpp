#include "DetailsPane.h"
#include "FindBar.h"
#include "LiveTraceModel.h"
#include "StatisticsPane.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <QCheckBox>
#include <QLineEdit>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QTableView>

using namespace ZelTracer;
using namespace gui;

namespace {

QString operator""_q(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

constexpr std::int32_t s_Timeout = static_cast<std::int32_t>(0xBFFF0015u);
constexpr std::int32_t s_NotFound = static_cast<std::int32_t>(0xBFFF0011u);

struct Call
{
    const char* text;
    std::int32_t status = 0;
    const char* address = "GPIB0::22::INSTR";
};

// A call and its return record, as a traced process writes them.
std::vector<FullEntry> records(const std::vector<Call>& calls, std::uint64_t firstId = 1)
{
    std::vector<FullEntry> list;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        for (std::uint32_t kind : {0u, 1u}) {
            FullEntry e = makeEntry(firstId + i, 100, kind, calls[i].text);
            e.status = kind == 0 ? 0 : calls[i].status;
            std::strncpy(e.address, calls[i].address, sizeof e.address - 1);
            list.push_back(e);
        }
    }
    return list;
}

const std::vector<Call> s_Table = {
    {"viOpen(1, \"TCPIP0::192.168.1.10::inst0::INSTR\", 0, 0, 7)", 0, "TCPIP0::192.168.1.10::inst0::INSTR"},
    {"viWrite(7, \"*IDN?\\n\", 6, 6)"},
    {"viRead(7, \"Zelbrook,DMM\\n\", 1024, 13)"},
    {"viWrite(7, \"MEAS:VOLT?\\n\", 11, 11)"},
    {"viRead(7, \"\", 1024, 0)", s_Timeout},
    {"viWrite(7, \"SYST:ERR?\\n\", 10, 10)"},
    {"viRead(7, \"-113,\\\"Undefined header\\\"\\n\", 1024, 24)"},
    {"viOpen(1, \"ASRL1::INSTR\", 0, 0, 0)", s_NotFound, "ASRL1::INSTR"},
    {"viClose(7)"},
};

// The tool's model on a private segment and shared ring, shown in a window with the analysis panes.
struct Fixture
{
    explicit Fixture(int tag, int ringCapacity = 0)
        : segment(tag)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
        , producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore)
        , model(nullptr, control, QString::fromStdString(TestNames::sharedRingName(std::to_string(tag).c_str())))
    {
        view = new QTableView;
        window.setCentralWidget(view);
        view->setModel(&model);
        model.selectionModel = view->selectionModel();
        model.tableView = view;
        find = new FindBar(model, view);
        details = new DetailsPane(model, view, &window);
        statistics = new StatisticsPane(model, &window);
        window.addDockWidget(Qt::BottomDockWidgetArea, details);
        window.addDockWidget(Qt::RightDockWidgetArea, statistics);
        window.show();
        if (ringCapacity > 0) {
            control.setTracingActive(true);
            model.setSharedRingSize(24 + 1232 * ringCapacity);
            model.start();
        }
    }
    ~Fixture() { model.tableView = nullptr; }

    // One pass of every stage for what the producer wrote.
    void capture(const std::vector<FullEntry>& list)
    {
        for (const FullEntry& e : list)
            producer.write(e);
        QTest::qWait(LiveTraceModel::s_TimerInterval + 10); // the shared stage feeds the ring once a tick
        model.updateSharedData();
        model.updateInternalAndDipslay();
    }
    void type(const QString& text, bool regex)
    {
        find->activate();
        find->findChild<QCheckBox*>()->setChecked(regex);
        find->findChild<QLineEdit*>()->setText(text);
    }
    // The ids of the calls the current row visits, one move after the other.
    QList<int> moves(void (FindBar::*move)(), int count)
    {
        QList<int> ids;
        for (int i = 0; i < count; ++i) {
            (find->*move)();
            const FullEntry* e = model.recordAt(view->currentIndex().row());
            ids << (e ? static_cast<int>(e->id) : -1);
        }
        return ids;
    }
    QStringList commands() const
    {
        QStringList list;
        for (int r = 0; r < model.rowCount(); ++r)
            list << model.data(model.index(r, LiveTraceModel::CommandColumn)).toString();
        return list;
    }

    PrivateSegment segment;
    TraceChannelControl control;
    TraceProducer producer;
    LiveTraceModel model;
    QMainWindow window;
    QTableView* view;
    FindBar* find;
    DetailsPane* details;
    StatisticsPane* statistics;
};

} // namespace

class TestAnalysisView : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Q_INIT_RESOURCE(icons); }
    void find_data();
    void find();
    void errorsAfterRowsLeftTheTop();
    void onlyErrors_data();
    void onlyErrors();
    void detailsFollowTheCall();
    void errorRowsKeepDarkText();
};

void TestAnalysisView::find_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<bool>("regex");
    QTest::addColumn<int>("from");
    QTest::addColumn<bool>("forward");
    QTest::addColumn<QList<int>>("ids");
    QTest::addColumn<QString>("status");

    QTest::newRow("text in the command, any case")
        << "viread"_q << false << -1 << true << QList<int> {3, 5, 7, 3} << "3 matches"_q;
    QTest::newRow("status name, backwards and around")
        << "VI_ERROR"_q << false << 6 << false << QList<int> {5, 8, 5} << "2 matches"_q;
    QTest::newRow("address") << "asrl1"_q << false << 0 << true << QList<int> {8, 8} << "1 match"_q;
    QTest::newRow("regular expression") << "meas|syst:e"_q << true << 6 << true << QList<int> {4, 6, 4}
                                        << "2 matches"_q;
    QTest::newRow("no match leaves the row") << "zzz"_q << false << 2 << true << QList<int> {3} << "No match"_q;
    QTest::newRow("invalid expression") << "("_q << true << 2 << true << QList<int> {3}
                                        << "missing closing parenthesis"_q;
    QTest::newRow("next error") << ""_q << false << -1 << true << QList<int> {5, 8, 5} << ""_q;
    QTest::newRow("previous error") << ""_q << false << 6 << false << QList<int> {5, 8, 5} << ""_q;
}

void TestAnalysisView::find()
{
    QFETCH(QString, pattern);
    QFETCH(bool, regex);
    QFETCH(int, from);
    QFETCH(bool, forward);
    QFETCH(QList<int>, ids);
    QFETCH(QString, status);

    Fixture f(1);
    f.model.setCollapseSameCommands(false);
    f.model.loadRecords(records(s_Table));
    QCOMPARE(f.model.rowCount(), 9);
    if (from >= 0)
        f.view->setCurrentIndex(f.model.index(from, LiveTraceModel::CommandColumn));
    f.type(pattern, regex);
    QCOMPARE(f.find->statusText(), status);
    void (FindBar::*move)() = pattern.isEmpty() ? (forward ? &FindBar::nextError : &FindBar::previousError)
                                                : (forward ? &FindBar::findNext : &FindBar::findPrevious);
    QCOMPARE(f.moves(move, ids.size()), ids);
}

// Rows leave the top when the ring is full; moves still start from the row the reader is on.
void TestAnalysisView::errorsAfterRowsLeftTheTop()
{
    Fixture f(2, 9); // 8 records: 4 calls
    f.capture(records({{"viWrite(7, \"A\")"}, {"viWrite(7, \"B\")"}, {"viRead(7, \"\")", s_Timeout}, {"viClear(7)"}}));
    QCOMPARE(f.model.rowCount(), 4);
    f.view->setCurrentIndex(f.model.index(2, LiveTraceModel::CommandColumn));
    f.capture(records({{"viRead(7, \"\")", s_Timeout}, {"viClose(7)"}}, 5));
    QCOMPARE(f.commands(), (QStringList {"viRead(7, \"\")"_q, "viClear(7)"_q, "viRead(7, \"\")"_q, "viClose(7)"_q}));
    QCOMPARE(f.view->currentIndex().row(), 0);
    QCOMPARE(f.moves(&FindBar::nextError, 3), (QList<int> {5, 3, 5}));
    f.type(QStringLiteral("viclose"), false);
    QCOMPARE(f.moves(&FindBar::findPrevious, 1), QList<int> {6});
}

void TestAnalysisView::onlyErrors_data()
{
    QTest::addColumn<bool>("collapse");
    QTest::addColumn<bool>("onlyErrors");
    QTest::addColumn<QStringList>("rows");

    const QString read = QStringLiteral("viRead(7, \"\")");
    QTest::newRow("errors, collapsed across the hidden rows") << true << true << QStringList {"3 x "_q + read};
    QTest::newRow("errors, not collapsed") << false << true << QStringList {read, read, read};
    QTest::newRow("all rows, collapsed") << true << false
                                         << QStringList {read, "viWrite(7, \"X\")"_q, "2 x "_q + read, "viClose(7)"_q};
}

void TestAnalysisView::onlyErrors()
{
    QFETCH(bool, collapse);
    QFETCH(bool, onlyErrors);
    QFETCH(QStringList, rows);

    Fixture f(3);
    f.model.setCollapseSameCommands(collapse);
    f.model.setOnlyErrors(onlyErrors);
    f.model.loadRecords(records({{"viRead(7, \"\")", s_Timeout},
                                 {"viWrite(7, \"X\")"},
                                 {"viRead(7, \"\")", s_Timeout},
                                 {"viRead(7, \"\")", s_Timeout},
                                 {"viClose(7)"}}));
    if (collapse && !onlyErrors)
        QCOMPARE(DetailsPane::rowLines(f.model, 2).value(1),
                 "This row stands for 2 identical calls in a row, 2.469 ms in all; below is the last."_q);
    QCOMPARE(f.commands(), rows);
}

// The pane pairs a call with its return wherever it is, also when the return arrives later.
void TestAnalysisView::detailsFollowTheCall()
{
    Fixture f(4, 20);
    std::vector<FullEntry> list = records({{"viRead(7, \"\")", s_Timeout}, {"viWrite(7, \"*CLS\\n\")"}});
    const FullEntry lateReturn = list[1];
    list.erase(list.begin() + 1);
    f.capture(list); // the read's call record, then another call, completed
    f.find->nextError();
    QCOMPARE(f.view->currentIndex().row(), -1); // no error shown yet
    f.view->setCurrentIndex(f.model.index(0, LiveTraceModel::CommandColumn));
    QCOMPARE(f.details->text().section(QLatin1Char('\n'), 0, 0), "viRead on GPIB0::22::INSTR: not returned yet"_q);
    f.capture({lateReturn});
    QCOMPARE(f.view->currentIndex().row(), 0);
    QCOMPARE(f.details->text().section(QLatin1Char('\n'), 0, 0),
             "viRead on GPIB0::22::INSTR: VI_ERROR_TMO (0xBFFF0015) after 1.235 ms"_q);
    QVERIFY(f.details->findChild<QPlainTextEdit*>(QStringLiteral("detailsReturn"))
                ->toPlainText()
                .startsWith(QStringLiteral("Return record (kind 1)\nId: 1\n")));
    QCOMPARE(f.statistics->statistics().toText().mid(1, 2),
             (QStringList {"viRead\t1\t1\t1.235 ms\t1.235 ms\t1.235 ms\t1.235 ms"_q,
                           "viWrite *CLS\t1\t0\t1.235 ms\t1.235 ms\t1.235 ms\t1.235 ms"_q}));
}

// A dark theme draws text light; on the light red of an error row it must stay dark.
void TestAnalysisView::errorRowsKeepDarkText()
{
    Fixture f(5);
    f.model.loadRecords(records(s_Table));
    const QVariant error = f.model.data(f.model.index(4, LiveTraceModel::CommandColumn), Qt::ForegroundRole);
    QVERIFY(error.canConvert<QColor>());
    QVERIFY(qGray(error.value<QColor>().rgb()) < 64);
    QVERIFY(!f.model.data(f.model.index(3, LiveTraceModel::CommandColumn), Qt::ForegroundRole).isValid());
}

QTEST_MAIN(TestAnalysisView)
#include "tst_analysisview.moc"
