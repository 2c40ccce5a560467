#include "AboutBox.h"
#include "AppTestSupport.h"
#include "CaptureWindow.h"
#include "TraceProducer.h"

#include <QAction>
#include <QBuffer>
#include <QTableView>
#include <QtTest>

#include <ctime>

using capture::Format;
using ZelTracer::FullEntry;

namespace {

constexpr std::uint64_t s_Max = capture::CaptureReader::s_MaxRecords;

// Every kind of row a capture holds: completed calls, a call and its return apart, three repeats
// that collapse, a failed call, a text with a tab, a newline, a quote, a backslash and a control
// byte, and an address with a Latin-1 letter.
std::vector<FullEntry> knownRecords()
{
    std::vector<FullEntry> records;
    auto call = [&records](std::uint64_t id, std::uint32_t pid, const char* text, double duration, int status) {
        FullEntry e = makeCall(pid, pid + 1, id, 0, text);
        e.duration = 0;
        records.push_back(e);
        if (duration < 0)
            return; // returns further down
        e.kind = 1;
        e.duration = duration;
        e.status = status;
        e.timestampFraction = 0.5;
        records.push_back(e);
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

QByteArray golden(QString const& name)
{
    return fileBytes(QStringLiteral(ZEL_CAPTURE_DATA "/") + name);
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
        const QString name = dir.filePath(QStringLiteral("export"));
        writeFile(name, QByteArray(100000, 'X'));
        return capture::exportView(model, name, format, nullptr) ? fileBytes(name) : QByteArray();
    }

    capture::Capture readBack(QByteArray bytes, std::optional<std::uint64_t> from = {})
    {
        QBuffer in(&bytes);
        in.open(QIODevice::ReadOnly);
        capture::Capture capture;
        error.clear();
        capture::CaptureReader::read(in, QStringLiteral("capture"), QDate(2023, 11, 14), capture, error, from);
        return capture;
    }

    // The log the producers write of the records.
    QByteArray producersLog(std::vector<FullEntry> const& records)
    {
        const QString log = dir.filePath(QStringLiteral("trace.log"));
        PrivateSegment const& segment = programSegment<20>();
        ZelTracer::TraceChannelControl& control = app.getChannelControl();
        control.setTracingActive(true);
        control.settracingToFileActive(true, log.toStdString());
        ZelTracer::TraceProducer producer(segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore,
                                          segment.fileSemaphore);
        for (FullEntry const& e : records)
            producer.write(e);
        producer.getFile().closeFile();
        control.settracingToFileActive(false);
        control.setTracingActive(false);
        return fileBytes(log);
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
        QCOMPARE(lines(bytes), lines(golden(file)));
        if (Format(format) == Format::Timeline)
            return; // for trace viewers: refused here
        writeFile(dir.filePath(file), bytes);
        const int liveRows = app.getModel().rowCount();
        QPointer<gui::CaptureWindow> window = gui::CaptureWindow::open(app, dir.filePath(file));
        QVERIFY(window && window->windowTitle().startsWith(file));
        QCOMPARE(window->table()->model(), &window->model());
        window->model().setCollapseSameCommands(collapse);
        const QString again = dir.filePath(QStringLiteral("again"));
        QVERIFY(gui::CaptureWindow::exportView(window, window->model(), again, Format(format)));
        QCOMPARE(lines(fileBytes(again)), lines(bytes));
        QCOMPARE(app.getModel().rowCount(), liveRows);
        QVERIFY(!app.getModel().isRunning());
        window->close();
        QTRY_VERIFY(!window);
    }

    // Other writers' files open as the calls they hold: a table saved again by a spreadsheet (byte
    // order mark, header quoted its own way) and the producers' own log (whole seconds only).
    void opensOtherWriters_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("table");
        QByteArray table = golden(QStringLiteral("known.csv"));
        const int headerEnd = table.indexOf('\n');
        QTest::newRow("spreadsheet") << "\xEF\xBB\xBF" + table.left(headerEnd).replace("\"", "") + table.mid(headerEnd)
                                     << table;
        std::vector<FullEntry> records = knownRecords();
        for (FullEntry& e : records)
            e.timestampFraction = 0;
        QTest::newRow("producers' log") << producersLog(records) << exported(records, Format::Csv);
    }
    void opensOtherWriters()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, table);
        const capture::Capture back = readBack(bytes);
        QVERIFY2(!back.records.empty(), qPrintable(error));
        QCOMPARE(lines(exported(back.records, Format::Csv)), lines(table));
    }

    // A file cut short or of another kind is refused with a message that says so, never half read.
    void refusals_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("message");
        auto row = [](const char* name, QByteArray const& bytes, const char* message) {
            QTest::newRow(name) << bytes << QString::fromUtf8(message);
        };
        const QByteArray csv = capture::s_CsvHeader, view = capture::CaptureWriter::viewTextHeader();
        const QByteArray log = "# Logging to file activated\n1\t2023-11-14 10:00:00\t1\t1\t2\t3\tA\t1\t1\t0\t";
        row("empty", "", "capture is empty.");
        row("foreign", "PK\x03\x04 zip\n", "capture is not a capture");
        row("timeline", golden(QStringLiteral("known.json")), "capture is a timeline for trace viewers");
        row("table cut in a quoted field", csv + tableRow("1", "call", "0", "1").left(44) + "\n", "cut short");
        row("table row short of fields", csv + "\"0\",\"1\"\r\n",
            "Line 2 of capture is not a line of a capture: it has 2");
        row("table id not a number", csv + tableRow("x", "call", "0", "1"), "the id \"x\"");
        row("table unknown kind", csv + tableRow("1", "ring", "0", "1"), "\"ring\" is not a kind");
        row("view header cut", view.left(40), "cut short");
        row("view bad time", view + "0\t1\t25:61:00.000\t1\t2\t3\tA\t0.1\t1\t0\tx\n", "\"25:61:00.000\" is not a time");
        row("log bad date", QByteArray(log).replace("11-14", "13-45") + "\"x\"\n", "is not a date and time");
        row("log text unquoted", log + "x\n", "quoted command are missing");
        row("line longer than any", csv + QByteArray(capture::CaptureReader::s_MaxLineLength + 10, 'x') + '\n',
            "longer than any line");
    }
    void refusals()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, message);
        QVERIFY(readBack(bytes).records.empty());
        QVERIFY2(error.contains(message), qPrintable(error));
    }

    // A file longer than a view is read a part at a time, and the first failed call is found in all
    // of it; a call count from outside costs neither memory beyond a view's worth nor the id order.
    void parts_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<qint64>("from"); // -1: the newest part
        // total, first failed, first kept, kept, id of the first kept
        QTest::addColumn<QList<qint64>>("expected");
        const qint64 max = s_Max, all = max + 52, failed = max + 51;
        QTest::newRow("newest part") << longTable() << qint64(-1) << QList<qint64> {all, failed, 52, max, 63};
        QTest::newRow("from the start") << longTable() << qint64(0) << QList<qint64> {all, failed, 0, max, 11};
        QTest::newRow("last records only")
            << longTable() << max + 40 << QList<qint64> {all, failed, max + 40, 12, max + 51};
        QTest::newRow("beyond the end") << longTable() << max + 100 << QList<qint64> {all, failed, all, 0, 0};
        QTest::newRow("hostile call count") << capture::s_CsvHeader + tableRow("5", "call", "0", "18446744073709551615")
                                            << qint64(-1) << QList<qint64> {max + 1, -1, 1, max, 5};
    }
    void parts()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(qint64, from);
        const capture::Capture c = readBack(bytes, from < 0 ? std::nullopt : std::optional<std::uint64_t>(from));
        QVERIFY2(error.isEmpty(), qPrintable(error));
        const qint64 firstId = c.records.empty() ? 0 : qint64(c.records.front().id);
        QTEST((QList<qint64> {qint64(c.total), c.firstError, qint64(c.first), qint64(c.records.size()), firstId}),
              "expected");
    }

    // Of a capture longer than a view the newest part shows first; one action brings the part with
    // the first failed call and makes that call current.
    void longCaptureFindsTheFailedCall()
    {
        writeFile(dir.filePath(QStringLiteral("hour.csv")), longTable());
        QPointer<gui::CaptureWindow> window = gui::CaptureWindow::open(app, dir.filePath(QStringLiteral("hour.csv")));
        QVERIFY(window);
        QCOMPARE(window->partStart(), 52u);
        QAction* failed = nullptr;
        for (QAction* action : window->findChildren<QAction*>())
            failed = action->text() == QStringLiteral("Part with the first &failed call") ? action : failed;
        QVERIFY(failed && failed->isEnabled());
        failed->trigger();
        QCOMPARE(window->partStart(), s_Max + 51 - s_Max / 2);
        const LiveTraceModel::Row* current = window->model().displayRow(window->table()->currentIndex().row());
        QVERIFY(current && current->entry->status < 0);
        window->close();
    }

    // What the user is told in message boxes: a file that is not a capture is refused and opens
    // nothing, an export that cannot be written says why, the About box names the version.
    void messageBoxes()
    {
        const QString notes = dir.filePath(QStringLiteral("notes.txt")),
                      noDir = dir.filePath(QStringLiteral("no/v.csv"));
        writeFile(notes, "shopping list\n");
        gui::CaptureWindow* opened = nullptr;
        QStringList shown = closingModals([&] {
            opened = gui::CaptureWindow::open(app, notes);
            gui::CaptureWindow::exportView(nullptr, app.getModel(), noDir, Format::Csv);
            gui::showAbout(nullptr);
        });
        QVERIFY(!opened);
        const QStringList expected {QStringLiteral("Open capture/notes.txt is not a capture: it begins neither"),
                                    QStringLiteral("Export view/Cannot write ") + noDir + QLatin1Char(':'),
                                    QStringLiteral("About ZelVisa Trace Tool/<h3>ZelVisa Trace Tool 5.12.9</h3>")};
        for (int i = 0; i < shown.size() && i < expected.size(); ++i)
            shown[i].truncate(expected[i].size());
        QCOMPARE(shown, expected);
    }

    // The recorder's text is the window's "Save view" text, byte for byte.
    void viewTextIsSaveViewText()
    {
        app.getModel().loadRecords(knownRecords());
        QCOMPARE(app.getBuffer().toUtf8(), golden(QStringLiteral("known.txt")));
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
