#include "TraceApplication.h"

#include "ZelVersion.h"

#include <QClipboard>
#include <QFile>
#include <QMessageBox>
#include <QTextStream>

#include <cstring>

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
void TraceApplication::watchSegment()
{
    const bool wasTracing = model.isRunning();
    const bool wasRecording = channelControl.isTracingToFile();
    const std::string logFile = channelControl.getFileName();
    if (!channelControl.reattachIfReplaced())
        return;
    if (wasTracing)
        channelControl.setTracingActive(true);
    if (wasRecording)
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

void TraceApplication::quit()
{
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

    const QChar tab = QLatin1Char('\t');
    const int rows = model.rowCount();
    for (int r = 0; r < rows; ++r) {
        const LiveTraceModel::Row* row = model.displayRow(r);
        if (!row)
            break;
        const ZelTracer::FullEntry& e = *row->entry;
        // Concatenated rather than filled in with arg(): a "%1" inside a command must stay as it is.
        buffer += QString::number(static_cast<qulonglong>(e.id - row->firstId)) + tab + QString::number(e.id) + tab
            + LiveTraceModel::timestamp2string(static_cast<long>(e.timestamp), e.timestampFraction) + tab
            + QString::number(e.pid) + tab + QString::number(e.threadId) + tab + QString::number(e.session) + tab
            + QString::fromLatin1(e.address, static_cast<int>(strnlen(e.address, sizeof e.address))) + tab
            + QString::number(e.duration, 'g', 6) + tab + QString::number(e.kind) + tab + QString::number(e.status)
            + tab + QString::fromLatin1(e.text, static_cast<int>(strnlen(e.text, sizeof e.text))) + lineEnd;
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
