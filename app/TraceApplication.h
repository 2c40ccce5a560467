#pragma once

#include "LiveTraceModel.h"
#include "ToolPresence.h"
#include "TraceChannelControl.h"

#include <QApplication>
#include <QString>
#include <QTimer>

#include <string>

// The shared objects one application talks to. The program always uses the defaults; tests pass
// private ones so that they never touch a user's running tool.
struct TraceEndpoints
{
    int segmentKey = ZelTracer::s_VisaSharedMemoryKey;
    std::string segmentSemaphore = ZelTracer::s_SharedMemoryMutexName;
    QString sharedRingName = LiveTraceModel::defaultSharedRingName();
};

// Owns the channel control and the live model, sets the settings identity and carries the
// commands of the main window's actions.
class TraceApplication : public QApplication
{
    Q_OBJECT

public:
    TraceApplication(int& argc, char** argv, TraceEndpoints endpoints = TraceEndpoints());
    ~TraceApplication() override;

    LiveTraceModel& getModel() { return model; }
    ZelTracer::TraceChannelControl& getChannelControl() { return channelControl; }
    TraceEndpoints const& getEndpoints() const { return endpoints; }
    // The log this tool last started (startfiletrace); a name in the header that differs was set by
    // another program, and this tool writes nothing there.
    std::string const& getStartedLogFile() const { return startedLogFile; }

    void setDisplayPause(bool pause);
    void saveBufferToFile(QString fileName);
    QString getBuffer();

    // Two system calls a time; records written in between into a removed segment are not recorded.
    static constexpr int s_SegmentWatchInterval = 200;

signals:
    void tracingChanged();
    // The trace segment was removed or replaced by someone else and this tool attached the new
    // one, carrying its tracing and recording state over.
    void segmentReattached();

public slots:
    void starttrace();
    void stoptrace();
    void startfiletrace(std::string const& filename);
    void stopfiletrace();
    void clearbuffer();
    void quit();
    void copyToClipboard();

private:
    void watchSegment();
    void writeRunReport();

    TraceEndpoints endpoints;
    ZelTracer::ToolPresence presence;
    std::string startedLogFile;
    ZelTracer::TraceChannelControl channelControl;
    LiveTraceModel model;
    QTimer segmentWatch;
};
