#pragma once

#include "TraceChannelControl.h"

#include <QObject>
#include <QTimer>

#include <string>

// Turns changes of the shared tracing flags, made by another copy of the tool or any program that
// writes the header, into signals. The segment has no notification, so it polls.
class ExternalEvents : public QObject
{
    Q_OBJECT

public:
    explicit ExternalEvents(int const& key = ZelTracer::s_VisaSharedMemoryKey,
                            std::string const& semaphoreName = ZelTracer::s_SharedMemoryMutexName);

    void emitSignals();
    void followSegment();

    static constexpr int s_PollInterval = 200;

signals:
    void start();
    void stop();
    void starttofile();
    void stoptofile();

private slots:
    void timerHit();

private:
    void announce();

    ZelTracer::TraceChannelControl channelControl;
    bool lastActive;
    bool lastToFile;
    QTimer* timer;
};
