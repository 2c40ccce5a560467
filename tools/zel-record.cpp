// zel-record: records the traced VISA calls into a file, without a window, for test stations and CI.
// It is a copy of the tool like any window: it joins the shared ring of full records, feeds it when
// no window does, and switches tracing off at the end only when it switched it on itself and no other
// copy of the tool is still running.

#include "CaptureExport.h"
#include "LiveTraceModel.h"
#include "ModelFilters.h"
#include "RecordOptions.h"
#include "TraceChannelControl.h"
#include "UnixSignalQuit.h"
#include "ZelVersion.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>

#include <unistd.h>

#include <cstdio>
#include <optional>

namespace {

void fail(QString const& text)
{
    std::fprintf(stderr, "zel-record: %s\n", qUtf8Printable(text));
}

class Recorder : public QObject
{
public:
    Recorder(RecordOptions const& options, ZelTracer::TraceChannelControl& control, LiveTraceModel& model, QFile& file)
        : options(options)
        , control(control)
        , model(model)
        , file(file)
        , writer(file, options.format)
        , progressShown(!options.quiet && isatty(STDERR_FILENO))
    {
        connect(&model, &LiveTraceModel::newDataCollected, this, [this] { writeRows(false); });
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
        writer.begin();
        file.flush(); // a file with its header says that recording runs
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
        model.updateDisplayData();
        writeRows(true);
        writer.finish();
        file.flush();
        if (!writer.ok() || file.error() != QFileDevice::NoError) {
            fail(QStringLiteral("writing %1 failed: %2").arg(options.output, file.errorString()));
            code = 2;
        }
        file.close();
        leave();
        if (progressShown)
            std::fputc('\n', stderr);
        if (!options.quiet)
            std::fprintf(stderr, "zel-record: %llu rows written to %s\n", static_cast<unsigned long long>(written),
                         qUtf8Printable(options.output));
        QCoreApplication::exit(code);
    }

private:
    // The last row may still change (its return record, or a repeat, can follow), so it is written
    // only at the end; every row before it is final.
    void writeRows(bool includeLast)
    {
        const int rows = model.rowCount();
        const int end = includeLast ? rows : rows - 1;
        int r = lastSequence == 0 ? 0 : model.rowOfSequence(lastSequence + 1);
        if (r < 0)
            return;
        for (; r < end && !(options.count && written >= options.count); ++r) {
            const LiveTraceModel::Row* row = model.displayRow(r);
            if (!row || row->entry->reserved <= lastSequence)
                continue;
            writer.write(*row);
            lastSequence = row->entry->reserved;
            ++written;
        }
        file.flush();
        // Not from here: this runs inside the model's display stage.
        if (options.count && written >= options.count && !stopping)
            QTimer::singleShot(0, this, [this] { stop(0); });
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
        const bool othersRemain = model.detachSharedRingBuffer();
        if (!othersRemain)
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
    ZelTracer::TraceChannelControl& control;
    LiveTraceModel& model;
    QFile& file;
    capture::CaptureWriter writer;
    UnixSignalQuit quitSignals;
    QTimer progress;
    QElapsedTimer clock;
    bool progressShown;
    bool switchedOn = false;
    bool stopping = false;
    std::uint64_t written = 0;
    std::uint64_t lastSequence = 0;
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
    QFile file(options->output);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        fail(QStringLiteral("cannot write %1: %2").arg(options->output, file.errorString()));
        return 2;
    }

    ZelTracer::TraceChannelControl control(options->key, ZelTracer::s_VisaSharedMemorySize, options->semaphore);
    LiveTraceModel model(nullptr, control, options->ring);
    // Every call gets its own row: a recording is read by people and programs that count calls.
    model.setCollapseSameCommands(false);
    model.setFilter(filters);

    Recorder recorder(*options, control, model, file);
    if (!recorder.start())
        return 2;
    return app.exec();
}
