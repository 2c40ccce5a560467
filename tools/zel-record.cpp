// zel-record: records the traced VISA calls into a file, without a window, for test stations and CI.
// It is a copy of the tool like any window: it joins the shared ring of full records, feeds it when
// no window does, and switches tracing off at the end only when it switched it on itself and no other
// copy of the tool is still running.

#include "CaptureExport.h"
#include "LiveTraceModel.h"
#include "ModelFilters.h"
#include "RowStream.h"
#include "ToolPresence.h"
#include "RecordOptions.h"
#include "TraceChannelControl.h"
#include "UnixSignalQuit.h"
#include "ZelVersion.h"
#include "ZelcapFormat.h"
#include "ZelcapWriter.h"

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

void fail(QString const& text)
{
    std::fprintf(stderr, "zel-record: %s\n", qUtf8Printable(text));
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
    ZelcapOutput(RecordOptions const& options, std::string const& previousMessage, unsigned previousPid)
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
    RecordOptions const& options;
    unsigned pidFilter;
    QString messageFilter;
    capture::ZelcapWriter writer;
    QTimer committer;
};

class Recorder : public QObject
{
public:
    Recorder(RecordOptions const& options, ZelTracer::TraceChannelControl& control, LiveTraceModel& model,
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
        // A foreign segment of the wrong size or mode under the key would record nothing, silently.
        const std::string problem = control.hasLock() ? control.segmentProblem() : control.lockProblem();
        if (!problem.empty()) {
            fail(QStringLiteral("no calls can be recorded: %1").arg(QString::fromStdString(problem)));
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

    RecordOptions const& options;
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
    const RecordCommandLine commandLine = RecordCommandLine::parse(QCoreApplication::arguments());
    if (!commandLine.options) {
        std::fputs(qUtf8Printable(commandLine.output), stdout);
        if (!commandLine.error.isEmpty())
            fail(commandLine.error);
        return commandLine.exitCode;
    }
    const std::optional<RecordOptions>& options = commandLine.options;

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
