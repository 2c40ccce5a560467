#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT, SIGTERM and SIGHUP into a Qt signal on the event loop, so that Ctrl+C, a service
// manager or a closed terminal end the program through its normal quit path (which switches tracing
// off when this was the last copy of the tool). The handler only writes the signal number into a
// pipe; everything else runs on the GUI thread. One instance per process.
class UnixSignalQuit : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignalQuit(QObject* parent = nullptr);
    ~UnixSignalQuit() override;

    bool isActive() const { return notifier != nullptr; }

signals:
    void quitRequested(int signalNumber);

private:
    void readSignal();

    QSocketNotifier* notifier = nullptr;
};
