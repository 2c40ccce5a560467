#include "AppTestSupport.h"
#include "CallStatistics.h"
#include "CaptureConverter.h"
#include "CaptureFileWindow.h"
#include "CaptureSummaryPane.h"
#include "CaptureTableModel.h"
#include "CaptureWindow.h"
#include "LiveRows.h"
#include "RecordDetails.h"
#include "RowSearch.h"
#include "RowStream.h"
#include "ZelcapFormat.h"
#include "ZelcapWriter.h"

#include <QBuffer>
#include <QTableView>
#include <QtTest>

#include <sqlite3.h>

using ZelTracer::FullEntry;

Q_DECLARE_METATYPE(SingleFilter)

namespace {

QString operator""_q(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

// A station's traffic in small: two processes of two threads whose calls interleave (so that many
// calls and returns stand apart), runs of the same read that collapse, reads whose return text
// differs from the call's, a failure now and then, calls that never return, a Latin-1 address.
std::vector<FullEntry> stationRecords()
{
    std::vector<FullEntry> records;
    std::uint64_t ids[4] = {1, 1, 50, 50};
    FullEntry held {};
    bool holding = false;
    for (int n = 0; n < 1500; ++n) {
        const int lane = (n * 7 + n / 5) % 4;
        const std::uint32_t pid = lane < 2 ? 300 : 400;
        const std::uint32_t thread = pid + 1 + static_cast<std::uint32_t>(lane % 2);
        const std::uint64_t id = ids[lane]++;
        const bool repeat = n % 10 < 4;
        const std::string call = repeat ? "viRead(0x5, buf, 20)"
                                        : "viWrite(0x5, \"MEAS:VOLT? CH" + std::to_string(n % 3) + "\\n\", 17, 17)";
        const std::string back = repeat ? "viRead(0x5, \"1.25\\n\", 20)" : call;
        FullEntry c = makeCall(pid, thread, id, 0, call);
        c.duration = 0;
        c.timestamp = 1700000000 + n / 50;
        c.timestampFraction = (n % 50) / 50.0;
        std::snprintf(c.address, sizeof c.address, "%s",
                      lane == 3 ? "ASRL/dev/ttyS\xE9::INSTR" : "TCPIP0::10.0.0.5::INSTR");
        records.push_back(c);
        if (holding)
            records.push_back(held);
        holding = false;
        if (n % 97 == 5)
            continue; // never returns
        FullEntry r = c;
        std::snprintf(r.text, sizeof r.text, "%s", back.c_str());
        r.kind = 1;
        r.duration = 0.0005 * (1 + n % 7);
        r.status = n % 13 == 4 ? static_cast<std::int32_t>(0xBFFF0015) : (repeat ? 0x3FFF0005 : 0);
        r.timestampFraction += 0.01;
        // A return that comes right behind its call, or after the next call of another lane.
        if (n % 3 == 0) {
            records.push_back(r);
        } else {
            held = r;
            holding = true;
        }
    }
    return records;
}

// The records made into rows and written as a recording writes them.
void writeCapture(std::vector<FullEntry> const& records, QString const& fileName)
{
    capture::ZelcapWriter writer;
    QString error;
    QVERIFY2(writer.create(fileName, error), qPrintable(error));
    RowStream rows(ModelFilters(),
                   [&writer](RowStream::Row const& row, RowStream::Entry const* call) { writer.write(row, call); });
    for (FullEntry const& e : records)
        rows.add(e);
    rows.finish();
    QVERIFY(writer.finish());
}

SingleFilter rule(int type, std::uint32_t value, const char* text = "")
{
    SingleFilter f;
    f.type = type;
    f.value = value;
    f.text = QString::fromUtf8(text);
    f.color = QColor(Qt::yellow);
    return f;
}

// Runs a query on a connection of the test's own, for files made to be hostile.
void sql(QString const& fileName, const char* statements)
{
    sqlite3* db = nullptr;
    sqlite3_open(QFile::encodeName(fileName).constData(), &db);
    char* message = nullptr;
    if (sqlite3_exec(db, statements, nullptr, nullptr, &message) != SQLITE_OK)
        qWarning("%s", message);
    sqlite3_free(message);
    sqlite3_close(db);
}

QByteArray fileBytes(QString const& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// Capture files written as a recording writes them, opened whole, and compared with the in-memory
// capture window that holds the same records; files from elsewhere refused with a message.
class TestZelcap : public QObject
{
    Q_OBJECT

public:
    explicit TestZelcap(TraceApplication& app)
        : app(app)
    { }

private:
    TraceApplication& app;
    QTemporaryDir dir;

    // Waits for the model's background work (threads, not timers) to be done.
    static bool settled(capture::CaptureTableModel& model)
    {
        return QTest::qWaitFor([&model] { return !model.isBusy(); }, 60000);
    }

    QByteArray exportOf(capture::CaptureTableModel& model, capture::Format format)
    {
        const QString name = dir.filePath("export"_q);
        bool done = false;
        QString error;
        model.exportView(name, format, this, [&](QString const& e) {
            error = e;
            done = true;
        });
        if (!QTest::qWaitFor([&done] { return done; }, 60000) || !error.isEmpty())
            return "failed: " + error.toUtf8();
        return fileBytes(name);
    }

    static QByteArray exportOf(LiveTraceModel& model, capture::Format format)
    {
        QBuffer out;
        out.open(QIODevice::WriteOnly);
        capture::writeView(model, out, format);
        return out.data();
    }

    template<class Ask> static int answer(Ask ask)
    {
        int result = -2;
        ask([&result](int r) { result = r; });
        (void)QTest::qWaitFor([&result] { return result != -2; }, 60000);
        return result;
    }

private slots:
    // Whatever the view options, the capture file shows what the in-memory capture window shows of the
    // same records: the rows (exported as CSV and as view text), find and its count, the failed calls,
    // the details of a call and the statistics.
    void sameAsInMemory_data()
    {
        QTest::addColumn<bool>("collapse");
        QTest::addColumn<bool>("onlyErrors");
        QTest::addColumn<QList<SingleFilter>>("rules");
        QTest::newRow("as recorded") << false << false << QList<SingleFilter>();
        QTest::newRow("collapsed") << true << false << QList<SingleFilter>();
        QTest::newRow("only errors") << false << true << QList<SingleFilter>();
        QTest::newRow("only errors, collapsed") << true << true << QList<SingleFilter>();
        QTest::newRow("exclude a thread")
            << true << false << QList<SingleFilter> {rule(SingleFilter::ExcludeThread, 302)};
        QTest::newRow("include a process, errors")
            << false << true << QList<SingleFilter> {rule(SingleFilter::IncludeProcess, 400)};
        QTest::newRow("include a session")
            << false << false << QList<SingleFilter> {rule(SingleFilter::IncludeSession, 7)};
        QTest::newRow("exclude returns by their text")
            << false << false << QList<SingleFilter> {rule(SingleFilter::ExcludeCommand, 0, "\"1.25")};
        QTest::newRow("include a command, highlight an address")
            << true << false
            << QList<SingleFilter> {rule(SingleFilter::IncludeCommand, 0, "meas:volt? ch1"),
                                    rule(SingleFilter::HighlightAddress, 0, "ASRL/dev/ttyS\xC3\xA9::INSTR")};
    }
    void sameAsInMemory()
    {
        QFETCH(bool, collapse);
        QFETCH(bool, onlyErrors);
        QFETCH(QList<SingleFilter>, rules);
        ModelFilters filters;
        for (SingleFilter const& f : rules)
            filters.add(f);
        const std::vector<FullEntry> records = stationRecords();
        const QString file = dir.filePath("station.zelcap"_q);
        writeCapture(records, file);

        LiveTraceModel memory(nullptr, app.getChannelControl());
        memory.loadRecords(records);
        memory.setCollapseSameCommands(collapse);
        memory.setOnlyErrors(onlyErrors);
        memory.setFilter(filters);
        LiveRows live(memory);

        capture::CaptureTableModel model;
        QString error;
        QVERIFY2(model.open(file, error), qPrintable(error));
        QAbstractItemModelTester tester(&model);
        model.setCollapseSameCommands(collapse);
        model.setOnlyErrors(onlyErrors);
        model.setFilter(filters);
        QVERIFY(settled(model));

        QCOMPARE(model.rowCount(), memory.rowCount());
        for (capture::Format format : {capture::Format::Csv, capture::Format::ViewText})
            QCOMPARE(QString::fromUtf8(exportOf(model, format)).split(QLatin1Char('\n')),
                     QString::fromUtf8(exportOf(memory, format)).split(QLatin1Char('\n')));
        for (int row = 0; row < memory.rowCount(); row += 37) {
            for (int column = 0; column < LiveTraceModel::ColumnCount; ++column) {
                for (int role : {Qt::DisplayRole, Qt::BackgroundRole, Qt::ForegroundRole}) {
                    const QModelIndex at = model.index(row, column);
                    QCOMPARE(model.data(at, role), memory.data(memory.index(row, column), role));
                }
            }
            QCOMPARE(model.headerData(row, Qt::Vertical), memory.headerData(row, Qt::Vertical));
            TraceRows::Call a, b;
            QVERIFY(model.call(row, a) && live.call(row, b));
            QCOMPARE(RecordDetails::callLines(a.record, a.hasPartner ? &a.partner : nullptr),
                     RecordDetails::callLines(b.record, b.hasPartner ? &b.partner : nullptr));
        }

        const int middle = memory.rowCount() / 2;
        for (auto [text, regex] : {std::pair("viread"_q, false), std::pair("error_tmo"_q, false),
                                   std::pair("t\xC3\xA9::"_q, false), std::pair("0x5, \"1\\.2"_q, true)}) {
            RowSearch search;
            QVERIFY(search.setPattern(text, regex));
            QCOMPARE(answer([&](auto done) { model.countMatches(search, this, done); }),
                     answer([&](auto done) { live.countMatches(search, this, done); }));
            for (auto [from, forward] : {std::pair(-1, true), std::pair(middle, true), std::pair(middle, false)})
                QCOMPARE(answer([&](auto done) { model.find(&search, from, forward, this, done); }),
                         answer([&](auto done) { live.find(&search, from, forward, this, done); }));
        }
        for (auto [from, forward] : {std::pair(-1, true), std::pair(middle, true), std::pair(middle, false)})
            QCOMPARE(answer([&](auto done) { model.find(nullptr, from, forward, this, done); }),
                     answer([&](auto done) { live.find(nullptr, from, forward, this, done); }));

        CallStatistics fromFile, fromMemory;
        bool counted = false;
        model.updateStatistics(fromFile, this, [&counted] { counted = true; });
        QVERIFY(QTest::qWaitFor([&counted] { return counted; }, 60000));
        live.updateStatistics(fromMemory, this, [] {});
        QCOMPARE(fromFile.toText(), fromMemory.toText());
    }

    // The recorder's CSV and view text of a recording are what the live view exports of the same
    // records, and an exported table converted on open reads back as the same rows.
    void convertedTableReadsBack()
    {
        const std::vector<FullEntry> records = stationRecords();
        LiveTraceModel memory(nullptr, app.getChannelControl());
        memory.setCollapseSameCommands(false);
        memory.loadRecords(records);
        const QByteArray csv = exportOf(memory, capture::Format::Csv);
        const QString table = dir.filePath("table.csv"_q), converted = dir.filePath("table.zelcap"_q);
        QFile out(table);
        QVERIFY(out.open(QIODevice::WriteOnly) && out.write(csv) == csv.size());
        out.close();
        QString error;
        qint64 lastDone = -1;
        QVERIFY2(capture::convertToZelcap(
                     table, converted, [&lastDone](qint64 done, qint64) { return (lastDone = done) >= 0; }, error),
                 qPrintable(error));
        QVERIFY(lastDone >= 0);
        capture::CaptureTableModel model;
        QVERIFY2(model.open(converted, error), qPrintable(error));
        QCOMPARE(exportOf(model, capture::Format::Csv), csv);
        QVERIFY(!capture::convertToZelcap(
            table, converted, [](qint64, qint64) { return false; }, error));
        QVERIFY(error.contains("cancelled"_q));
        QVERIFY(!QFile::exists(converted));
    }

    // A file from elsewhere gives a clear message and opens nothing, or opens and reads what is there;
    // nothing crashes or hangs.
    void foreignFiles_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("expected"); // in the message; empty: it opens
        QTest::newRow("no file") << "none"
                                 << "there is no such file";
        QTest::newRow("text") << "text"
                              << "it is not a database";
        QTest::newRow("empty file") << "empty"
                                    << "a database of another program";
        QTest::newRow("another program's database") << "other"
                                                    << "a database of another program";
        QTest::newRow("newer format") << "newer"
                                      << "capture format 99";
        QTest::newRow("tables of another kind") << "schema"
                                                << "its tables are not those of a capture";
        QTest::newRow("a view for a table") << "view"
                                            << "its tables are not those of a capture";
        QTest::newRow("numbers far apart") << "sparse"
                                           << "";
        QTest::newRow("values of other types") << "types"
                                               << "";
        QTest::newRow("cut in half") << "cut"
                                     << "?";
    }
    void foreignFiles()
    {
        QFETCH(QString, kind);
        QFETCH(QString, expected);
        const QString file = dir.filePath(kind + ".zelcap"_q);
        QFile::remove(file);
        auto write = [&file](QByteArray const& bytes) {
            QFile f(file);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(bytes);
        };
        const std::string head = "PRAGMA application_id = " + std::to_string(capture::zelcap::s_ApplicationId) + ";";
        if (kind == "text"_q)
            write(QByteArray(4096, 'x'));
        else if (kind == "empty"_q)
            write(QByteArray());
        else if (kind == "other"_q)
            sql(file, "CREATE TABLE notes(text); INSERT INTO notes VALUES('x');");
        else if (kind == "newer"_q || kind == "schema"_q || kind == "view"_q) {
            const std::string version = kind == "newer"_q ? "99" : "1";
            const char* tables = kind == "view"_q
                ? "CREATE TABLE facts(name, value); CREATE TABLE processes(pid, first_id); CREATE VIEW calls AS WITH "
                  "RECURSIVE r(row) AS (SELECT 1 UNION ALL SELECT row + 1 FROM r) SELECT row FROM r;"
                : "CREATE TABLE facts(name, value); CREATE TABLE processes(pid, first_id); CREATE TABLE calls(row);";
            sql(file, (head + "PRAGMA user_version = " + version + ";" + tables).c_str());
        } else if (kind != "none"_q) {
            std::vector<FullEntry> records = stationRecords();
            writeCapture(records, file);
            if (kind == "sparse"_q)
                sql(file, "UPDATE calls SET row = row * 1000000000000 WHERE row > 10;");
            if (kind == "types"_q)
                sql(file,
                    "UPDATE calls SET pid = 'x', command = 12, address = x'00', fraction = 'inf', seconds = "
                    "9.9e300, shown = -5 WHERE row % 2 = 0;"
                    "INSERT INTO facts VALUES (x'00ff', zeroblob(100000));");
            if (kind == "cut"_q) {
                const QByteArray bytes = fileBytes(file);
                write(bytes.left(bytes.size() / 2));
            }
        }
        capture::CaptureTableModel model;
        QString error;
        const bool opened = model.open(file, error);
        if (expected == "?"_q)
            expected = opened ? QString() : error.mid(error.indexOf(QLatin1Char(':')));
        QVERIFY2(opened ? expected.isEmpty() : !expected.isEmpty() && error.contains(expected), qPrintable(error));
        if (!opened) {
            QVERIFY(error.startsWith(kind + ".zelcap cannot be opened as a capture: "_q));
            return;
        }
        // Every cell of a few rows, the failed calls, a search, statistics and the summary.
        QVERIFY(model.rowCount() <= capture::ZelcapFile::s_MaxRows);
        for (int row : {0, 1, 11, 12, model.rowCount() / 2, model.rowCount() - 1}) {
            for (int column = 0; column < LiveTraceModel::ColumnCount; ++column)
                model.data(model.index(row, column));
            model.headerData(row, Qt::Vertical, Qt::DecorationRole);
            TraceRows::Call call;
            model.call(row, call);
        }
        answer([&](auto done) { model.find(nullptr, 3, true, this, done); });
        RowSearch search;
        search.setPattern("viread"_q, false);
        answer([&](auto done) { model.find(&search, 3, false, this, done); });
        model.setCollapseSameCommands(true);
        QVERIFY(settled(model));
        CallStatistics stats;
        model.updateStatistics(stats, this, [] {});
        QVERIFY(QTest::qWaitFor([&model] { return model.summary() != nullptr || !model.isBusy(); }, 60000));
    }

    // Opened in its own window: the summary counts the calls and links to the failures, a link makes
    // the failed row current; a table opened converts first and opens whole.
    void windowAndSummary()
    {
        const std::vector<FullEntry> records = stationRecords();
        const QString file = dir.filePath("window.zelcap"_q);
        writeCapture(records, file);
        QPointer<gui::CaptureFileWindow> window = gui::CaptureFileWindow::openAny(file);
        QVERIFY(window);
        QVERIFY(QTest::qWaitFor([&window] { return window->model().summary() != nullptr; }, 60000));
        capture::CaptureSummary const& summary = *window->model().summary();
        std::uint64_t calls = 0, failed = 0;
        for (FullEntry const& e : records) {
            calls += e.kind != 0 ? 1 : 0;
            failed += e.kind != 0 && e.status < 0 ? 1 : 0;
        }
        QCOMPARE(summary.calls, calls);
        QCOMPARE(summary.failedCalls, failed);
        QCOMPARE(summary.failuresByStatus.at(static_cast<std::int32_t>(0xBFFF0015)), failed);
        const QString text = window->summaryPane()->text();
        QVERIFY2(text.contains("Failed calls\n%1\n"_q.arg(failed)), qPrintable(text));
        QVERIFY(text.contains("VI_ERROR_TMO"_q));
        window->showFileRow(summary.firstFailedRow);
        QVERIFY(window->table()->currentIndex().isValid());
        TraceRows::Call current;
        QVERIFY(window->model().call(window->table()->currentIndex().row(), current));
        QVERIFY(current.record.status < 0);
        window->close();
        QTRY_VERIFY(!window);

        LiveTraceModel memory(nullptr, app.getChannelControl());
        memory.setCollapseSameCommands(false);
        memory.loadRecords(records);
        const QString table = dir.filePath("opened.txt"_q);
        QVERIFY(capture::exportView(memory, table, capture::Format::ViewText, nullptr));
        window = gui::CaptureFileWindow::openAny(table);
        QVERIFY(window);
        QVERIFY(window->windowTitle().startsWith("opened.txt - "_q));
        QCOMPARE(window->model().rowCount(), memory.rowCount());
        window->close();
        QTRY_VERIFY(!window);
    }
};

int main(int argc, char** argv)
{
    qputenv("TZ", "UTC");
    tzset();
    return execWithApplication<TestZelcap>(argc, argv, programSegment<21>(), "zelcap");
}

#include "tst_zelcap.moc"
