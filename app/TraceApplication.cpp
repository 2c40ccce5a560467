#include "TraceApplication.h"

#include "ZelVersion.h"

#include <QClipboard>
#include <QFile>
#include <QMessageBox>
#include <QTextStream>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>

TraceApplication::TraceApplication(int& argc, char** argv, TraceEndpoints endpoints)
    : QApplication(argc, argv)
    , endpoints(std::move(endpoints))
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
    // Tracing and recording stop only when the last copy of the tool leaves. A copy that never
    // attached the shared ring (recording to file only, or a failed start) is told that others
    // remain; the kernel's count of processes still on the ring, now that this one has left it,
    // says whether that is so.
    const bool othersRemain = model.detachSharedRingBuffer()
        && ZelTracer::RingBufferSharedMem<ZelTracer::FullEntry>::attachedProcesses(endpoints.sharedRingName) > 0;
    if (!othersRemain) {
        stoptrace();
        stopfiletrace();
    }
    QCoreApplication::quit();
}

// ---- View export ----

QString TraceApplication::getBuffer()
{
    static const QString lineEnd = QStringLiteral("\n");
    QString buffer;
    buffer += QStringLiteral("# VISA version: %1%2").arg(QLatin1String(ZelTracer::s_VersionString), lineEnd);
    buffer += QStringLiteral("# Bitness:      %1%2").arg(64).arg(lineEnd);
    buffer += QStringLiteral("# OS:           Linux%1").arg(lineEnd);

    // Built in place: "Copy view" of a full table with the longest commands is several megabytes,
    // and the GUI thread that builds it also drains the segment. So the size is reserved once,
    // numbers and texts are appended without temporary strings, and only the time and the
    // duration go through their formatters.
    const QLatin1Char tab('\t');
    const int rows = model.rowCount();
    qsizetype size = buffer.size();
    for (int r = 0; r < rows; ++r) {
        if (const LiveTraceModel::Row* row = model.displayRow(r))
            size += 96 + strnlen(row->entry->address, sizeof row->entry->address)
                + strnlen(row->entry->text, sizeof row->entry->text);
    }
    buffer.reserve(static_cast<int>(std::min<qsizetype>(size, std::numeric_limits<int>::max() / 2)));
    char digits[24];
    auto appendNumber = [&buffer, &digits](auto value) {
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        buffer += QLatin1String(digits, static_cast<int>(end - digits));
    };
    for (int r = 0; r < rows; ++r) {
        const LiveTraceModel::Row* row = model.displayRow(r);
        if (!row)
            break;
        const ZelTracer::FullEntry& e = *row->entry;
        // Appended rather than filled in with arg(): a "%1" inside a command must stay as it is.
        appendNumber(static_cast<std::uint64_t>(e.id - row->firstId));
        buffer += tab;
        appendNumber(static_cast<std::uint64_t>(e.id));
        buffer += tab;
        buffer += LiveTraceModel::timestamp2string(static_cast<long>(e.timestamp), e.timestampFraction);
        buffer += tab;
        appendNumber(e.pid);
        buffer += tab;
        appendNumber(e.threadId);
        buffer += tab;
        appendNumber(e.session);
        buffer += tab;
        buffer += QLatin1String(e.address, static_cast<int>(strnlen(e.address, sizeof e.address)));
        buffer += tab;
        buffer += QString::number(e.duration, 'g', 6);
        buffer += tab;
        appendNumber(e.kind);
        buffer += tab;
        appendNumber(e.status);
        buffer += tab;
        buffer += QLatin1String(e.text, static_cast<int>(strnlen(e.text, sizeof e.text)));
        buffer += lineEnd;
    }
    return buffer;
}

void TraceApplication::copyToClipboard()
{
    QGuiApplication::clipboard()->setText(getBuffer(), QClipboard::Clipboard);
}

void TraceApplication::saveBufferToFile(QString fileName)
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
