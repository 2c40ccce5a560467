#include "ExternalEvents.h"

ExternalEvents::ExternalEvents(int const& key, std::string const& semaphoreName)
    : channelControl(key, ZelTracer::s_VisaSharedMemorySize, semaphoreName)
    , lastActive(channelControl.tracingActive())
    , lastToFile(channelControl.isTracingToFile())
    , timer(new QTimer(this))
{
    announce(); // nobody is connected yet; the window asks again through emitSignals()
    connect(timer, &QTimer::timeout, this, &ExternalEvents::timerHit);
    timer->setInterval(s_PollInterval);
    timer->start();
}

void ExternalEvents::announce()
{
    emit lastActive ? start() : stop();
    emit lastToFile ? starttofile() : stoptofile();
}

void ExternalEvents::timerHit()
{
    // This monitor has a lock of its own; it must not stay on a lock file that was removed.
    channelControl.reopenLockIfReplaced();
    const bool active = channelControl.tracingActive();
    const bool toFile = channelControl.isTracingToFile();
    if (active != lastActive) {
        lastActive = active;
        emit active ? start() : stop();
    }
    if (toFile != lastToFile) {
        lastToFile = toFile;
        emit toFile ? starttofile() : stoptofile();
    }
}

void ExternalEvents::emitSignals()
{
    lastActive = channelControl.tracingActive();
    lastToFile = channelControl.isTracingToFile();
    announce();
}

// Called once the application has followed a removed or replaced segment and carried its state
// over: this monitor then reads the new segment too, and takes its state without announcing it.
// Left to itself it could reach the new segment first, find tracing off there and stop the tool.
void ExternalEvents::followSegment()
{
    channelControl.reattachIfReplaced();
    lastActive = channelControl.tracingActive();
    lastToFile = channelControl.isTracingToFile();
}
