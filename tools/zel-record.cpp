// zel-record: records the traced VISA calls into a file, without a window, for test stations and CI.
// It is a copy of the tool like any window: it joins the shared ring of full records, feeds it when
// no window does, and switches tracing off at the end only when it switched it on itself and no other
// copy of the tool is still running.

#include "CaptureExport.h"
#include "LiveTraceModel.h"
#include "ModelFilters.h"
#include "RowStream.h"
#include "ToolPresence.h"
#include "TraceChannelControl.h"
#include "UnixSignalQuit.h"
#include "ZelVersion.h"
#include "ZelcapFormat.h"
#include "ZelcapWriter.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>
#include <QTimer>

#include <unistd.h>

#include <cstdio>
#include <limits>
#include <memory>
#include <optional>

namespace {

struct Options
{
    QString output;
    capture::Format format = capture::Format::Csv;
    // A capture file rather than one of the export formats.
    bool zelcap = false;
    double duration = 0;
    std::uint64_t count = 0;
    QString viewFilter;
    std::optional<unsigned> pid;
    std::optional<QString> message;
    bool quiet = false;
    int key = ZelTracer::s_VisaSharedMemoryKey;
    std::string semaphore = ZelTracer::s_SharedMemoryMutexName;
    QString ring = LiveTraceModel::defaultSharedRingName();
};

void fail(QString const& text)
{
    std::fprintf(stderr, "zel-record: %s\n", qUtf8Printable(text));
}

// Usage errors end the program with 1, as QCommandLineParser does for unknown options.
std::optional<Options> parse(QCoreApplication const& app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Records the VISA calls of every traced process into a file, without a window.\n"
        "Stops after --duration or --count, or on Ctrl+C, SIGTERM or SIGHUP, and always writes a complete "
        "file.\nTracing is switched on if it is off, and then off again at the end unless another copy of "
        "the tool is running."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption output({QStringLiteral("o"), QStringLiteral("output")},
                                    QStringLiteral("The file to write (replaced if it exists)."),
                                    QStringLiteral("file"));
    const QCommandLineOption format(QStringLiteral("format"),
                                    QStringLiteral("zelcap (a capture file for long recordings, opened whole by the "
                                                   "window), csv, text (as \"Save view\") or timeline (Trace Event "
                                                   "JSON for Perfetto and chrome://tracing). Default: from the file "
                                                   "suffix (.zelcap, .csv, .json, else text)."),
                                    QStringLiteral("format"));
    const QCommandLineOption duration(QStringLiteral("duration"), QStringLiteral("Stop after this many seconds."),
                                      QStringLiteral("seconds"));
    const QCommandLineOption count(QStringLiteral("count"), QStringLiteral("Stop after this many rows."),
                                   QStringLiteral("n"));
    const QCommandLineOption viewFilter(QStringLiteral("view-filter"),
                                        QStringLiteral("Keep only the rows these view filters show (a *.viewfilter "
                                                       "file saved by the window)."),
                                        QStringLiteral("file"));
    const QCommandLineOption pid(QStringLiteral("pid"),
                                 QStringLiteral("Record filter: only this process (0 = every process). Set for "
                                                "every copy of the tool, as the window's record filter is."),
                                 QStringLiteral("pid"));
    const QCommandLineOption message(QStringLiteral("message"),
                                     QStringLiteral("Record filter: only calls whose text contains this."),
                                     QStringLiteral("text"));
    const QCommandLineOption quiet({QStringLiteral("q"), QStringLiteral("quiet")},
                                   QStringLiteral("No progress line and no summary."));
    // Private segment, semaphore and ring, so that tests never meet a user's tool.
    QCommandLineOption key(QStringLiteral("segment-key"), QStringLiteral("For tests."), QStringLiteral("key"));
    QCommandLineOption semaphore(QStringLiteral("segment-semaphore"), QStringLiteral("For tests."),
                                 QStringLiteral("name"));
    QCommandLineOption ring(QStringLiteral("ring"), QStringLiteral("For tests."), QStringLiteral("name"));
    for (QCommandLineOption* hidden : {&key, &semaphore, &ring})
        hidden->setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({output, format, duration, count, viewFilter, pid, message, quiet, key, semaphore, ring});
    parser.process(app);

    Options o;
    if (!parser.isSet(output)) {
        fail(QStringLiteral("no output file; see --help"));
        return std::nullopt;
    }
    o.output = parser.value(output);
    o.format = capture::formatForFileName(o.output);
    o.zelcap = QFileInfo(o.output).suffix().toLower() == QLatin1String("zelcap");
    if (parser.isSet(format)) {
        const auto f = capture::formatForName(parser.value(format));
        o.zelcap = parser.value(format) == QLatin1String("zelcap");
        if (!f && !o.zelcap) {
            fail(QStringLiteral("unknown format \"%1\"; use zelcap, csv, text or timeline").arg(parser.value(format)));
            return std::nullopt;
        }
        if (f)
            o.format = *f;
    }
    bool good = true;
    if (parser.isSet(duration)) {
        o.duration = parser.value(duration).toDouble(&good);
        // A timer counts milliseconds in an int: up to 24 days.
        good = good && o.duration > 0 && o.duration <= std::numeric_limits<int>::max() / 1000.0;
    }
    if (good && parser.isSet(count)) {
        o.count = parser.value(count).toULongLong(&good);
        good = good && o.count > 0;
    }
    if (good && parser.isSet(pid))
        o.pid = parser.value(pid).toUInt(&good);
    if (good && parser.isSet(key))
        o.key = parser.value(key).toInt(&good, 0);
    if (!good) {
        fail(QStringLiteral("--duration (at most 24 days), --count, --pid and --segment-key take positive numbers"));
        return std::nullopt;
    }
    if (parser.isSet(message)) {
        o.message = parser.value(message);
        if (o.message->toLocal8Bit().size() > 255) {
            fail(QStringLiteral("--message takes at most 255 characters"));
            return std::nullopt;
        }
    }
    o.viewFilter = parser.value(viewFilter);
    o.quiet = parser.isSet(quiet);
    if (parser.isSet(semaphore))
        o.semaphore = parser.value(semaphore).toStdString();
    if (parser.isSet(ring))
        o.ring = parser.value(ring);
    return o;
}

// Where the rows go: one of the export formats written as a stream, or a capture file.
class Output
{
public:
    virtual ~Output() = default;
    virtual bool begin(QString& error) = 0;
    virtual void write(LiveTraceModel::Row const& row, LiveTraceModel::Entry const* call) = 0;
    // After every batch of rows; dropped and lost as the summary counts them so far.
    virtual void batchDone(std::uint64_t dropped, std::uint64_t lost) = 0;
    // The last word; false with the reason in error when the file is not whole.
    virtual bool finish(std::uint64_t dropped, std::uint64_t lost, QString& error) = 0;
};

class ExportOutput : public Output
{
public:
    ExportOutput(QString const& fileName, capture::Format format)
        : file(fileName)
        , writer(file, format)
    { }
    bool begin(QString& error) override
    {
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            error = QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString());
            return false;
        }
        writer.begin();
        file.flush(); // a file with its header says that recording runs
        return true;
    }
    void write(LiveTraceModel::Row const& row, LiveTraceModel::Entry const*) override { writer.write(row); }
    void batchDone(std::uint64_t, std::uint64_t) override { file.flush(); }
    bool finish(std::uint64_t, std::uint64_t, QString& error) override
    {
        writer.finish();
        file.flush();
        const bool ok = writer.ok() && file.error() == QFileDevice::NoError;
        if (!ok)
            error = QStringLiteral("writing %1 failed: %2").arg(file.fileName(), file.errorString());
        file.close();
        return ok;
    }

private:
    QFile file;
    capture::CaptureWriter writer;
};

class ZelcapOutput : public Output
{
public:
    ZelcapOutput(Options const& options, std::string const& previousMessage, unsigned previousPid)
        : options(options)
        , pidFilter(options.pid.value_or(previousPid))
        , messageFilter(options.message.value_or(QString::fromLocal8Bit(previousMessage.c_str())))
    { }
    bool begin(QString& error) override
    {
        namespace fact = capture::zelcap::fact;
        if (!writer.create(options.output, error)) {
            error = error.left(1).toLower() + error.mid(1);
            return false;
        }
        writer.setFact(fact::s_Version, QLatin1String(ZelTracer::s_VersionString));
        writer.setFact(fact::s_Host, QSysInfo::machineHostName());
        writer.setFact(fact::s_User, qEnvironmentVariable("USER"));
        writer.setFact(fact::s_Start, QDateTime::currentDateTime().toString(Qt::ISODateWithMs));
        writer.setFact(fact::s_PidFilter, std::int64_t(pidFilter));
        writer.setFact(fact::s_MessageFilter, messageFilter);
        writer.setFact(fact::s_ViewFilter, options.viewFilter);
        batchDone(0, 0);
        // Also when no call comes for a while: a transaction is never older than its bound.
        QObject::connect(&committer, &QTimer::timeout, [this] { writer.commitIfDue(); });
        committer.start(capture::ZelcapWriter::s_MaxAgeMs / 2);
        return writer.ok();
    }
    void write(LiveTraceModel::Row const& row, LiveTraceModel::Entry const* call) override { writer.write(row, call); }
    void batchDone(std::uint64_t dropped, std::uint64_t lost) override
    {
        writer.setFact(capture::zelcap::fact::s_Dropped, static_cast<std::int64_t>(dropped));
        writer.setFact(capture::zelcap::fact::s_Lost, static_cast<std::int64_t>(lost));
        writer.commitIfDue();
    }
    bool finish(std::uint64_t dropped, std::uint64_t lost, QString& error) override
    {
        committer.stop();
        batchDone(dropped, lost);
        writer.setFact(capture::zelcap::fact::s_Stop, QDateTime::currentDateTime().toString(Qt::ISODateWithMs));
        if (writer.finish())
            return true;
        error = QStringLiteral("writing %1 failed: %2").arg(options.output, writer.errorString());
        return false;
    }

private:
    Options const& options;
    unsigned pidFilter;
    QString messageFilter;
    capture::ZelcapWriter writer;
    QTimer committer;
};

class Recorder : public QObject
{
public:
    Recorder(Options const& options, ZelTracer::TraceChannelControl& control, LiveTraceModel& model,
             ModelFilters const& viewFilters)
        : options(options)
        , control(control)
        , model(model)
        , rows(viewFilters,
               [this](LiveTraceModel::Row const& row, LiveTraceModel::Entry const* call) { writeRow(row, call); })
        , progressShown(!options.quiet && isatty(STDERR_FILENO))
    {
        // Every record the model takes, on every tick: the display rows are rebuilt only every fourth
        // tick and hold only what fits in a view, which a fast producer overruns.
        model.onRecordsTaken([this] { takeRecords(); });
        connect(&progress, &QTimer::timeout, this, &Recorder::showProgress);
        connect(&quitSignals, &UnixSignalQuit::quitRequested, this, [this] { stop(0); });
    }

    // Returns false when recording could not start; the reason has been printed.
    bool start()
    {
        if (!control.hasLock()) {
            fail(QStringLiteral("no calls can be recorded: %1").arg(QString::fromStdString(control.lockProblem())));
            return false;
        }
        ZelTracer::SharedMemoryHeader before {};
        control.readSharedMemoryHeader(before);
        previousPid = before.pidFilter;
        previousMessage = std::string(before.messageFilter, strnlen(before.messageFilter, sizeof before.messageFilter));
        // The file first: a recording that cannot be written changes nothing for anyone.
        if (options.zelcap)
            output = std::make_unique<ZelcapOutput>(options, previousMessage, previousPid);
        else
            output = std::make_unique<ExportOutput>(options.output, options.format);
        QString error;
        if (!output->begin(error)) {
            fail(error);
            return false;
        }
        if (options.pid)
            control.setPidFilter(*options.pid);
        if (options.message)
            control.setMessageFilter(options.message->toLocal8Bit().toStdString());

        switchedOn = !control.tracingActive();
        if (switchedOn)
            control.setTracingActive(true);
        if (!model.start()) {
            fail(QStringLiteral("tracing could not be started: the shared record ring cannot be opened"));
            // Not attached, so not counted: put back what this recorder changed, as the window does
            // when its start fails.
            restore();
            return false;
        }
        // A recording holds the calls made while it runs. The shared ring may still hold a window's
        // history or the last calls of a recorder that was killed; those are not written again.
        model.clear();
        clock.start();
        if (options.duration > 0)
            QTimer::singleShot(static_cast<int>(options.duration * 1000), this, [this] { stop(0); });
        if (progressShown)
            progress.start(500);
        return true;
    }

    void stop(int code)
    {
        if (stopping)
            return;
        stopping = true;
        progress.stop();
        // What the producers wrote until now still goes into the file, the last row included.
        model.updateSharedData();
        model.updateInternalData();
        rows.finish();
        // Every record a producer tried to write is in the file or in this figure: what the producers
        // dropped or lost on the way (the gaps in their numbers) and what this recorder took but could
        // not write before the next ones overwrote it.
        const std::uint64_t lost = model.getLossCounter().total() + rows.missed();
        QString error;
        if (!output->finish(model.getLossCounter().total(), rows.missed(), error)) {
            fail(error);
            code = 2;
        }
        leave();
        if (progressShown)
            std::fputc('\n', stderr);
        if (!options.quiet)
            std::fprintf(stderr, "zel-record: %llu rows written to %s, %llu records lost\n",
                         static_cast<unsigned long long>(written), qUtf8Printable(options.output),
                         static_cast<unsigned long long>(lost));
        QCoreApplication::exit(code);
    }

private:
    void takeRecords()
    {
        rows.take(model);
        output->batchDone(model.getLossCounter().total(), rows.missed());
        // Not from here: this runs inside the model's internal stage.
        if (options.count && written >= options.count && !stopping)
            QTimer::singleShot(0, this, [this] { stop(0); });
    }

    void writeRow(LiveTraceModel::Row const& row, LiveTraceModel::Entry const* call)
    {
        if (options.count && written >= options.count)
            return;
        output->write(row, call);
        ++written;
    }

    void showProgress()
    {
        std::fprintf(stderr, "\rzel-record: %llu rows, %lld s  ", static_cast<unsigned long long>(written),
                     static_cast<long long>(clock.elapsed() / 1000));
        std::fflush(stderr);
    }

    // Like the window's quit: tracing stops only with the last copy of the tool, and only when this
    // recorder was the one that switched it on.
    void leave()
    {
        const bool ringSaysSo = model.detachSharedRingBuffer();
        if (!presence.othersRemain(ringSaysSo))
            restore();
    }

    void restore()
    {
        if (switchedOn)
            control.setTracingActive(false);
        if (options.pid)
            control.setPidFilter(previousPid);
        if (options.message)
            control.setMessageFilter(previousMessage);
    }

    Options const& options;
    // Counted among the copies of the tool from the start, like a window.
    ZelTracer::ToolPresence presence {options.ring.toStdString()};
    ZelTracer::TraceChannelControl& control;
    LiveTraceModel& model;
    std::unique_ptr<Output> output;
    RowStream rows;
    UnixSignalQuit quitSignals;
    QTimer progress;
    QElapsedTimer clock;
    bool progressShown;
    bool switchedOn = false;
    bool stopping = false;
    std::uint64_t written = 0;
    unsigned previousPid = 0;
    std::string previousMessage;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zel-record"));
    QCoreApplication::setApplicationVersion(QLatin1String(ZelTracer::s_VersionString));
    const std::optional<Options> options = parse(app);
    if (!options)
        return 1;

    ModelFilters filters;
    if (!options->viewFilter.isEmpty()) {
        QFile filterFile(options->viewFilter);
        if (!filterFile.open(QIODevice::ReadOnly) || !filters.loadViewFilterFile(filterFile)) {
            fail(QStringLiteral("%1 is not a view filter file that can be read").arg(options->viewFilter));
            return 1;
        }
    }
    ZelTracer::TraceChannelControl control(options->key, ZelTracer::s_VisaSharedMemorySize, options->semaphore);
    LiveTraceModel model(nullptr, control, options->ring);
    // The model takes every record; the view filters apply to the rows written, so that no batch is
    // left waiting in the shared ring because the filters hide all of it.
    Recorder recorder(*options, control, model, filters);
    if (!recorder.start())
        return 2;
    return app.exec();
}
