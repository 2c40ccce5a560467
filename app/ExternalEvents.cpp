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
    // A removed or replaced segment would otherwise report its last state forever.
    channelControl.reattachIfReplaced();
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
