#include "AboutBox.h"
#include "AppTestSupport.h"
#include "CaptureWindow.h"
#include "RecordDetails.h"
#include "TraceProducer.h"

#include <QAction>
#include <QTableView>
#include <QtTest>

#include <ctime>

using capture::Format;
using ZelTracer::FullEntry;

namespace {

QString operator""_q(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

constexpr std::uint64_t s_Max = capture::CaptureReader::s_MaxRecords;

// Every kind of row a capture holds: completed calls, a call and its return apart, three repeats
// that collapse, a failed call, a text with a tab, a newline, a quote, a backslash and a control
// byte, and an address with a Latin-1 letter.
std::vector<FullEntry> knownRecords()
{
    std::vector<FullEntry> records;
    auto call = [&records](std::uint64_t id, std::uint32_t pid, const char* text, double duration, int status) {
        records.push_back(makeCall(pid, pid + 1, id, 0, text));
        records.back().duration = 0;
        if (duration >= 0) { // else it returns further down
            records.push_back(makeCall(pid, pid + 1, id, 1, text, status));
            records.back().duration = duration;
            records.back().timestampFraction = 0.5;
        }
    };
    call(1, 100, "viOpen(0x1, \"TCPIP0::10.0.0.5::INSTR\", 0, 2000, 0x37)", 0.0125, 0);
    call(2, 100, "viWrite(0x37, \"MEAS:VOLT?\\n\n\ta\"b\x01\", 14, 14)", 0.00025, 0);
    call(7, 200, "viRead(0x2, buf, 20)", -1, 0);
    for (const std::uint64_t id : {3, 4, 5})
        call(id, 100, "viRead(0x37, \"1.25\", 20)", id == 3 ? 0.5 : 0.25, 0x3FFF0005);
    FullEntry back = makeEntry(7, 200, 1, "viRead(0x2, buf, 20)"); // VI_ERROR_TMO
    back.duration = 2.0;
    std::strcpy(back.address, "ASRL/dev/ttyS\xE9::INSTR");
    records.push_back(back);
    return records;
}

// A row of an exported table, of a call that took 1.5 s; the fields that tests vary are given.
QByteArray tableRow(QByteArray const& id, QByteArray const& kind, QByteArray const& status, QByteArray const& calls,
                    QByteArray const& command = "viRead(0x1)")
{
    return "\"0\",\"" + id + "\",\"" + kind
        + "\",\"2023-11-14 22:13:21.250\",\"1.5\",\"100\",\"101\",\"7\",\"A\",\"1.5\",\"" + status + "\",\"S\",\""
        + calls + "\",\"" + command + "\"\r\n";
}

// A table longer than a view: two collapsed rows of (max + 50) / 2 calls each that never returned
// (ids 11 on), then a failed call, so that every record of the file has a known index.
QByteArray longTable()
{
    const qulonglong half = (s_Max + 50) / 2;
    auto waits = [](qulonglong lastId, qulonglong calls) {
        return tableRow(QByteArray::number(lastId), "call", "0", QByteArray::number(calls), "viWaitOnEvent(0x1)");
    };
    return capture::s_CsvHeader + waits(10 + half, half) + waits(10 + 2 * half, half)
        + tableRow("1", "completed", "-1073807339", "1");
}

QByteArray fileBytes(QString const& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(QString const& name, QByteArray const& bytes)
{
    QFile file(name);
    (void)(file.open(QIODevice::WriteOnly) && file.write(bytes));
}

// What a read kept of a capture.
QString partOf(qint64 total, qint64 firstFailed, qint64 first, qint64 kept, qint64 firstId)
{
    return QString::asprintf("%lld records, the first failed %lld; %lld kept from %lld, ids from %lld.", total,
                             firstFailed, kept, first, firstId);
}

QStringList lines(QByteArray const& bytes)
{
    return QString::fromUtf8(bytes).split(QLatin1Char('\n'));
}

} // namespace

// Captures written, read back and shown in their own window beside a live application on private names.
class TestCaptures : public QObject
{
    Q_OBJECT

public:
    explicit TestCaptures(TraceApplication& app)
        : app(app)
    { }

private:
    TraceApplication& app;
    QTemporaryDir dir;
    QString error; // the reader's last message

    // Every export goes over an older, longer file, so a tail left behind shows in every comparison.
    QByteArray exported(std::vector<FullEntry> const& records, Format format, bool collapse = true)
    {
        LiveTraceModel model(nullptr, app.getChannelControl());
        model.setCollapseSameCommands(collapse);
        model.loadRecords(records);
        const QString name = dir.filePath("export"_q);
        writeFile(name, QByteArray(100000, 'X'));
        return capture::exportView(model, name, format, nullptr) ? fileBytes(name) : QByteArray();
    }

    capture::Capture readBack(QByteArray const& bytes, std::optional<std::uint64_t> from = {})
    {
        writeFile(dir.filePath("capture"_q), bytes);
        capture::Capture capture;
        error.clear();
        capture::CaptureReader::read(dir.filePath("capture"_q), capture, error, from);
        return capture;
    }

private slots:
    // The known records in each format are the hand-checked file. Opened beside the live view (read
    // only, titled by its file, the live view untouched) and exported again, they are the same bytes.
    void exportAndReopen_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<bool>("collapse");
        QTest::addColumn<QString>("file");
        QTest::newRow("csv table") << int(Format::Csv) << true << "known.csv";
        QTest::newRow("csv, every call a row") << int(Format::Csv) << false << "known-calls.csv";
        QTest::newRow("saved view text") << int(Format::ViewText) << true << "known.txt";
        QTest::newRow("trace event timeline") << int(Format::Timeline) << true << "known.json";
    }
    void exportAndReopen()
    {
        QFETCH(int, format);
        QFETCH(bool, collapse);
        QFETCH(QString, file);
        const QByteArray bytes = exported(knownRecords(), Format(format), collapse);
        QCOMPARE(lines(bytes), lines(fileBytes(ZEL_CAPTURE_DATA "/"_q + file)));
        if (Format(format) == Format::Timeline)
            return; // for trace viewers: refused here
        const int liveRows = app.getModel().rowCount();
        QPointer<gui::CaptureWindow> window = gui::CaptureWindow::open(app, dir.filePath("export"_q)); // as exported
        QVERIFY(window && window->windowTitle().startsWith("export - "_q));
        QCOMPARE(window->table()->model(), &window->model());
        window->model().setCollapseSameCommands(collapse);
        const QString again = dir.filePath("again"_q);
        QVERIFY(gui::CaptureWindow::exportView(window, window->model(), again, Format(format)));
        QCOMPARE(lines(fileBytes(again)), lines(bytes));
        QCOMPARE(app.getModel().rowCount(), liveRows);
        QVERIFY(!app.getModel().isRunning());
        window->close();
        QTRY_VERIFY(!window);
    }

    // Instruments send UTF-8 (units, names) and sometimes Latin-1 or binary: a text reads as UTF-8 where
    // its bytes are valid UTF-8, else byte by byte as Latin-1, the same in the view, the details, every
    // export and a capture read back.
    void textsDecodeAlikeEverywhere_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("UTF-8") << QByteArray("ger\xC3\xA4t-\xC2\xB5 23 \xC2\xB0"
                                             "C")
                               << "gerät-µ 23 °C"_q;
        QTest::newRow("Latin-1") << QByteArray("ger\xE4t-\xB5 23 \xB0"
                                               "C")
                                 << "gerät-µ 23 °C"_q;
        QTest::newRow("invalid sequence") << QByteArray("\xC3\x28 ok") << "Ã( ok"_q;
        QTest::newRow("sequence cut at the end") << QByteArray("ab \xC3") << "ab Ã"_q;
        QTest::newRow("byte-order mark") << QByteArray("\xEF\xBB\xBFx")
                                         << QString(QChar(0xFEFF)) + "x"_q; // "\uFEFF"_q would lose it
    }
    void textsDecodeAlikeEverywhere()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        FullEntry e = makeEntry(1, 100, 1, QByteArray("viWrite(0x1, \"" + bytes + "\")").constData());
        qstrncpy(e.address, bytes.constData(), sizeof e.address);
        const QString command = "viWrite(0x1, \""_q + text + "\")"_q;
        auto cells = [this](std::vector<FullEntry> const& records) -> QString {
            LiveTraceModel model(nullptr, app.getChannelControl());
            model.loadRecords(records);
            return model.data(model.index(0, LiveTraceModel::AddressColumn)).toString() + QLatin1Char('|')
                + model.data(model.index(0, LiveTraceModel::CommandColumn)).toString();
        };
        const QString shown = text + QLatin1Char('|') + command;
        QCOMPARE(cells({e}), shown);
        QVERIFY(RecordDetails::recordLines(e).contains("Address: "_q + text));
        for (Format format : {Format::Csv, Format::ViewText}) {
            const QByteArray file = exported({e}, format);
            QVERIFY(QString::fromUtf8(file).contains(text));
            const capture::Capture back = readBack(file);
            QVERIFY2(!back.records.empty(), qPrintable(error));
            QCOMPARE(cells(back.records), shown);
        }
        QVERIFY(QString::fromUtf8(exported({e}, Format::Timeline)).contains(text));
    }

    // One timeline event per call: a call whose return came as a row of its own is one event, a
    // collapsed row as many events as calls, a call that never returned is begun and not ended.
    void timelineOneEventPerCall()
    {
        std::vector<FullEntry> records;
        auto record = [&records](std::uint64_t id, std::uint32_t thread, std::uint32_t kind) {
            records.push_back(makeCall(100, thread, id, kind, "viRead(0x1)"));
        };
        record(1, 1, 0); // returns after another thread's call
        record(2, 2, 0); // never returns
        record(1, 1, 1);
        for (std::uint64_t id : {3, 4}) { // collapse into one row
            record(id, 1, 0);
            record(id, 1, 1);
        }
        QStringList events;
        for (const QJsonValue event : QJsonDocument::fromJson(exported(records, Format::Timeline)).array()) {
            const QJsonObject e = event.toObject();
            events << e["ph"_q].toString() + QString::number(e["args"_q].toObject()["id"_q].toInt());
        }
        QCOMPARE(events.join(QLatin1Char(' ')), "X1 X3 X4 B2"_q);
    }

    // A log written by the producers themselves opens as the calls it holds (whole seconds only).
    void producersLogOpens()
    {
        std::vector<FullEntry> records = knownRecords();
        const QString log = dir.filePath("trace.log"_q);
        PrivateSegment const& segment = programSegment<20>();
        app.getChannelControl().setTracingActive(true);
        app.getChannelControl().settracingToFileActive(true, log.toStdString());
        ZelTracer::TraceProducer producer(segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore,
                                          segment.fileSemaphore);
        for (FullEntry& e : records) {
            e.timestampFraction = 0;
            producer.write(e);
        }
        producer.getFile().closeFile();
        app.getChannelControl().settracingToFileActive(false);
        app.getChannelControl().setTracingActive(false);
        const capture::Capture back = readBack(fileBytes(log));
        QVERIFY2(!back.records.empty(), qPrintable(error));
        // The log keeps a record to one line: control characters other than TAB come back escaped.
        for (FullEntry& e : records)
            std::strcpy(e.text, QByteArray(e.text).replace("\n", "\\n").replace("\x01", "\\x01").constData());
        QCOMPARE(lines(exported(back.records, Format::Csv)), lines(exported(records, Format::Csv)));
    }

    // What the reader makes of a file: the part it keeps, or the message that refuses it. A table a
    // spreadsheet saved again (byte order mark, its own quoting) opens; a file longer than a view is
    // read a part at a time and its first failed call found in all of it; a count from outside costs
    // neither memory beyond a view nor the id order; a file cut short or of another kind is refused
    // with a message that says so, never half read.
    void reading_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<qint64>("from"); // -1: the newest part
        QTest::addColumn<QString>("expected"); // in the outcome
        auto row = [](const char* name, QByteArray const& bytes, QString const& expected, qint64 from = -1) {
            QTest::newRow(name) << bytes << from << expected;
        };
        const qint64 max = s_Max, all = max + 52, failed = max + 51;
        const QByteArray csv = capture::s_CsvHeader, view = capture::viewTextHeader().toUtf8();
        const QByteArray log = "# Logging to file activated\n1\t2023-11-14 10:00:00\t1\t1\t2\t3\tA\t1\t1\t0\t";
        QByteArray table = fileBytes(ZEL_CAPTURE_DATA "/known.csv"_q);
        const int headerEnd = table.indexOf('\n');
        row("spreadsheet", "\xEF\xBB\xBF" + table.left(headerEnd).replace("\"", "") + table.mid(headerEnd),
            partOf(12, 11, 0, 12, 1));
        row("newest part", longTable(), partOf(all, failed, 52, max, 63));
        row("from the start", longTable(), partOf(all, failed, 0, max, 11), 0);
        row("last records only", longTable(), partOf(all, failed, max + 40, 12, max + 51), max + 40);
        row("beyond the end", longTable(), partOf(all, failed, all, 0, 0), max + 100);
        row("hostile call count", csv + tableRow("5", "call", "0", "18446744073709551615"),
            partOf(max + 1, -1, 1, max, 5));
        row("empty", "", "capture is empty."_q);
        row("foreign", "PK\x03\x04 zip\n", "capture is not a capture"_q);
        row("timeline", fileBytes(ZEL_CAPTURE_DATA "/known.json"_q), "capture is a timeline for trace viewers"_q);
        row("table cut in a quoted field", csv + tableRow("1", "call", "0", "1").left(44) + "\n", "cut short"_q);
        row("table row short of fields", csv + "\"0\",\"1\"\r\n",
            "Line 2 of capture is not a line of a capture: it has 2"_q);
        row("table id not a number", csv + tableRow("x", "call", "0", "1"), "the id \"x\""_q);
        row("table unknown kind", csv + tableRow("1", "ring", "0", "1"), "\"ring\" is not a kind"_q);
        row("view header cut", view.left(40), "cut short"_q);
        row("view bad time", view + "0\t1\t25:61:00.000\t1\t2\t3\tA\t0.1\t1\t0\tx\n",
            "\"25:61:00.000\" is not a time"_q);
        row("log bad date", QByteArray(log).replace("11-14", "13-45") + "\"x\"\n", "is not a date and time"_q);
        row("log text unquoted", log + "x\n", "quoted command are missing"_q);
        row("line longer than any", csv + QByteArray(capture::CaptureReader::s_MaxLineLength + 10, 'x') + '\n',
            "longer than any line"_q);
    }
    void reading()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(qint64, from);
        QFETCH(QString, expected);
        const capture::Capture c = readBack(bytes, from < 0 ? std::nullopt : std::optional<std::uint64_t>(from));
        const qint64 firstId = c.records.empty() ? 0 : qint64(c.records.front().id);
        const QString outcome
            = error.isEmpty() ? partOf(c.total, c.firstError, c.first, c.records.size(), firstId) : error;
        QVERIFY2(outcome.contains(expected) && (error.isEmpty() || c.records.empty()), qPrintable(outcome));
    }

    // Of a capture longer than a view the newest part shows first; one action brings the part with
    // the first failed call and makes that call current.
    void longCaptureFindsTheFailedCall()
    {
        writeFile(dir.filePath("hour.csv"_q), longTable());
        QPointer<gui::CaptureWindow> window = gui::CaptureWindow::open(app, dir.filePath("hour.csv"_q));
        QVERIFY(window);
        QCOMPARE(window->partStart(), 52u);
        QAction* failed = nullptr;
        for (QAction* action : window->findChildren<QAction*>())
            failed = action->text() == "Part with the first &failed call"_q ? action : failed;
        QVERIFY(failed && failed->isEnabled());
        failed->trigger();
        QCOMPARE(window->partStart(), s_Max + 51 - s_Max / 2);
        const LiveTraceModel::Row* current = window->model().displayRow(window->table()->currentIndex().row());
        QVERIFY(current && current->entry->status < 0);
        window->close();
    }

    // The suffix typed decides the format, whatever filter the dialog had chosen; without one of ours
    // the filter decides and gives its suffix.
    void exportTarget_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("filter"); // the dialog's filter, as fileDialogFilters() lists them
        QTest::addColumn<QString>("target"); // file name and format
        QTest::newRow("typed json under the CSV filter") << "live.json"_q << 0 << "live.json 2"_q;
        QTest::newRow("typed CSV in capitals under the timeline filter") << "a.CSV"_q << 1 << "a.CSV 0"_q;
        QTest::newRow("no suffix: the filter's") << "live"_q << 2 << "live.txt 1"_q;
        QTest::newRow("another suffix: the filter's format") << "trace.log"_q << 0 << "trace.log 0"_q;
    }
    void exportTarget()
    {
        QFETCH(QString, typed);
        QFETCH(int, filter);
        QFETCH(QString, target);
        const auto [name, format]
            = gui::CaptureWindow::exportTarget(typed, gui::CaptureWindow::fileDialogFilters().split(";;"_q)[filter]);
        QCOMPARE(name + QLatin1Char(' ') + QString::number(int(format)), target);
    }

    // What the user is told in message boxes: a file that is not a capture is refused and opens
    // nothing, an export that cannot be written says why, the About box names the version.
    void messageBoxes()
    {
        const QString notes = dir.filePath("notes.txt"_q), noDir = dir.filePath("no/v.csv"_q);
        writeFile(notes, "shopping list\n");
        QStringList shown = closingModals([&] {
            QVERIFY(!gui::CaptureWindow::open(app, notes));
            gui::CaptureWindow::exportView(nullptr, app.getModel(), noDir, Format::Csv);
            gui::showAbout(nullptr);
        });
        const QStringList expected {"Open capture/notes.txt is not a capture: it begins neither"_q,
                                    "Export view/Cannot write "_q + noDir + QLatin1Char(':'),
                                    "About ZelVisa Trace Tool/<h3>ZelVisa Trace Tool 5.12.9</h3>"_q};
        for (int i = 0; i < shown.size() && i < expected.size(); ++i)
            shown[i].truncate(expected[i].size());
        QCOMPARE(shown, expected);
    }

    // The recorder's text is the window's "Save view" text, byte for byte.
    void viewTextIsSaveViewText()
    {
        app.getModel().loadRecords(knownRecords());
        QCOMPARE(app.getBuffer().toUtf8(), fileBytes(ZEL_CAPTURE_DATA "/known.txt"_q));
        app.clearbuffer();
    }
};

int main(int argc, char** argv)
{
    qputenv("TZ", "UTC"); // the golden files are written for UTC
    tzset();
    return execWithApplication<TestCaptures>(argc, argv, programSegment<20>(), "captures");
}

#include "tst_captures.moc"
