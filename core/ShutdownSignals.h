#pragma once

#include <QObject>

class QSocketNotifier;

namespace spinlane {

// SIGTERM, SIGHUP and SIGINT delivered as a Qt signal on the thread that created this object.
// The system's handler does nothing but write the signal's number to one end of a socket pair,
// which is safe inside a signal handler; a socket notifier reads it in the event loop. One
// instance at a time; the default handling comes back when it is destroyed. Elsewhere than on
// Unix it does nothing.
class ShutdownSignals : public QObject {
    Q_OBJECT
public:
    explicit ShutdownSignals(QObject* parent = nullptr);
    ~ShutdownSignals() override;

Q_SIGNALS:
    void received(int signalNumber);

private:
    void readSignals();
    QSocketNotifier* m_notifier = nullptr;
};

} // namespace spinlane
