#include "TraceApplication.h"

#include "CaptureExport.h"

#include "ZelVersion.h"

#include <QClipboard>
#include <QFile>
#include <QMessageBox>
#include <QTextStream>

#include <cstdint>

TraceApplication::TraceApplication(int& argc, char** argv, TraceEndpoints endpoints)
    : QApplication(argc, argv)
    , endpoints(std::move(endpoints))
    , presence(this->endpoints.sharedRingName.toStdString())
    , channelControl(this->endpoints.segmentKey, ZelTracer::s_VisaSharedMemorySize, this->endpoints.segmentSemaphore)
    , model(this, channelControl, this->endpoints.sharedRingName)
{
    setOrganizationName(QStringLiteral("Zelbrook"));
    // The maker's web domain; any fixed value keeps the settings in one place.
    setOrganizationDomain(QStringLiteral("zelbrook.com"));
    setApplicationName(QStringLiteral("ZelVisaTraceTool"));
    setApplicationVersion(QLatin1String(ZelTracer::s_VersionString));
    connect(&segmentWatch, &QTimer::timeout, this, &TraceApplication::watchSegment);
    segmentWatch.start(s_SegmentWatchInterval);
}

// Anyone may remove the trace segment; producers then create a fresh one with tracing off and
// nobody would read it. The tool follows to the new segment and switches on there what it had on.
// A removed lock file is followed the same way. Recording goes on only into the log this tool
// started: a name that another program wrote into the old header gets no header from this tool.
void TraceApplication::watchSegment()
{
    channelControl.reopenLockIfReplaced();
    const bool wasTracing = model.isRunning();
    const bool wasRecording = channelControl.isTracingToFile();
    const std::string logFile = channelControl.getFileName();
    if (!channelControl.reattachIfReplaced())
        return;
    if (wasTracing)
        channelControl.setTracingActive(true);
    if (wasRecording && logFile == startedLogFile)
        channelControl.settracingToFileActive(true, logFile);
    emit segmentReattached();
    emit tracingChanged();
}

TraceApplication::~TraceApplication() = default;

void TraceApplication::starttrace()
{
    clearbuffer();
    model.setPause(false);
    channelControl.setTracingActive(true);
    if (model.start()) {
        emit tracingChanged();
        return;
    }
    channelControl.setTracingActive(false);
    QMessageBox::critical(nullptr, QStringLiteral("Error"),
                          QStringLiteral("Due to an internal error tracing could not be started!"), QMessageBox::Ok);
}

void TraceApplication::stoptrace()
{
    channelControl.setTracingActive(false);
    model.stop();
    emit tracingChanged();
}

void TraceApplication::startfiletrace(std::string const& filename)
{
    startedLogFile = filename;
    channelControl.settracingToFileActive(true, filename);
    emit tracingChanged();
}

void TraceApplication::stopfiletrace()
{
    channelControl.settracingToFileActive(false);
    emit tracingChanged();
}

void TraceApplication::clearbuffer()
{
    model.clear();
    model.updateDisplayData();
}

void TraceApplication::setDisplayPause(bool pause)
{
    // Leaving the pause always starts afresh: what was captured before is discarded.
    if (!pause)
        clearbuffer();
    model.setPause(pause);
}

// For long unattended runs (scripts/soak.sh): the counts of this run, written where the variable
// ZEL_SOAK_REPORT points when the tool quits. Only a soak build (ZEL_SOAK_BUILD) has it: the program
// people run reads no variable of its own.
void TraceApplication::writeRunReport()
{
#ifdef ZEL_SOAK_BUILD
    const QString path = qEnvironmentVariable("ZEL_SOAK_REPORT");
    if (path.isEmpty())
        return;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    const auto& ring = model.getLocalRing();
    // Every record taken carries its sequence number; the newest one's is the count since the last clear.
    const std::uint64_t taken
        = ring.empty() ? 0 : ring((ring.end + ring.numberOfElements() - 1) % ring.numberOfElements()).reserved;
    QTextStream(&file) << "taken " << taken << "\nlost " << model.getLossCounter().total() << "\nrows "
                       << model.rowCount() << '\n';
#endif
}

void TraceApplication::quit()
{
    writeRunReport();
    // Tracing and recording stop only when the last copy of the tool leaves, counted by the presence
    // every copy holds whether it traces or not. Should that not be known, the shared ring tells: a
    // copy that never attached it is told that others remain, and the kernel's count of processes
    // still on the ring, now that this one has left it, says whether that is so.
    const bool ringSaysSo = model.detachSharedRingBuffer()
        && ZelTracer::RingBufferSharedMem<ZelTracer::FullEntry>::attachedProcesses(endpoints.sharedRingName) > 0;
    if (!presence.othersRemain(ringSaysSo)) {
        stoptrace();
        stopfiletrace();
    }
    QCoreApplication::quit();
}

// ---- View export ----

QString TraceApplication::getBuffer()
{
    QString buffer = capture::viewTextHeader();
    // Most lines are shorter; the string grows from there when they are not.
    buffer.reserve(buffer.size() + model.rowCount() * 128);
    model.forEachShownRow([&buffer](LiveTraceModel::Row const& row) { capture::appendViewTextLine(buffer, row); });
    return buffer;
}

void TraceApplication::copyToClipboard()
{
    QGuiApplication::clipboard()->setText(getBuffer(), QClipboard::Clipboard);
}

// The name is taken by value, as the window has always passed it.
void TraceApplication::saveBufferToFile(QString fileName) // NOLINT(performance-unnecessary-value-param)
{
    // Opened without truncation, as the export always has been: a shorter export over a longer
    // file leaves the old tail behind.
    QFile file(fileName);
    if (file.open(QIODevice::ReadWrite)) {
        QTextStream stream(&file);
        stream << getBuffer();
    }
    file.close();
}
