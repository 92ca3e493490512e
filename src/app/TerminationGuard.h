#pragma once

#include <QObject>
#include <QPointer>
#include <QWindow>
#include <memory>

#include "app/TerminationSignals.h"
#include "app/UninstallerModel.h"

namespace app {

// Refuses to let the program end while files are being removed, whatever
// asks for it: the window's close button, a quit request to the application
// (QCoreApplication::quit, the last window closing, the platform's Quit
// command), or a termination signal. At every other time (the wait for
// Tavio to quit included, since nothing has been touched then) the request
// goes through. A refusal shows nothing: the screens show the busy state.
//
// A signal that arrives while busy is not forgotten: it is honoured, as a
// quit request, as soon as the run has ended.
class TerminationGuard : public QObject {
    Q_OBJECT

  public:
    // Watches quit requests to the application from now on. The model is
    // held weakly: without a model, nothing is refused.
    explicit TerminationGuard(UninstallerModel* model, QObject* parent = nullptr);
    ~TerminationGuard() override;

    TerminationGuard(const TerminationGuard&) = delete;
    TerminationGuard& operator=(const TerminationGuard&) = delete;

    // Whether the program may end now.
    bool shouldTerminate() const;

    // Refuses the window's close while busy. (Taking the close button off
    // the title bar meanwhile is the window's own business.)
    void guardWindow(QWindow* window);

    // Routes SIGTERM, SIGINT and SIGHUP through the guard. Returns whether
    // the handlers are in place.
    bool catchTerminationSignals();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void onSignal();
    void onBusyChanged();

    QPointer<UninstallerModel> model_;
    QPointer<QWindow> window_;
    std::unique_ptr<TerminationSignals> signals_;
    bool signalPending_ = false;
};

}  // namespace app
