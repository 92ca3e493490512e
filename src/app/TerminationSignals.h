#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <memory>

namespace app {

// Turns SIGTERM, SIGINT and SIGHUP into a Qt signal on the GUI thread, so
// that they can be weighed like any other request to quit instead of ending
// the process in the middle of a removal. The handler only writes the signal
// number to a pipe (the one thing a handler may safely do); a socket
// notifier reads it in the event loop.
//
// One instance at a time per process; the previous dispositions come back
// when it goes.
class TerminationSignals : public QObject {
    Q_OBJECT

  public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;

    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

    // Whether the handlers are in place; false when the pipe could not be
    // made, in which case the signals keep their default effect.
    bool isActive() const { return notifier_ != nullptr; }

  signals:
    void received(int signalNumber);

  private:
    void drain();

    int readFd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace app
