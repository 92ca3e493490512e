#include "app/TerminationGuard.h"

#include <QCoreApplication>
#include <QEvent>

namespace app {

TerminationGuard::TerminationGuard(UninstallerModel* model, QObject* parent)
    : QObject(parent), model_(model) {
    QCoreApplication::instance()->installEventFilter(this);
    if (model) {
        connect(model, &UninstallerModel::isBusyChanged, this, &TerminationGuard::onBusyChanged);
    }
}

TerminationGuard::~TerminationGuard() {
    QCoreApplication::instance()->removeEventFilter(this);
    if (window_) {
        window_->removeEventFilter(this);
    }
}

bool TerminationGuard::shouldTerminate() const {
    return !(model_ && model_->isBusy());
}

void TerminationGuard::guardWindow(QWindow* window) {
    if (window_) {
        window_->removeEventFilter(this);
    }
    window_ = window;
    if (window) {
        window->installEventFilter(this);
    }
}

bool TerminationGuard::catchTerminationSignals() {
    if (!signals_) {
        signals_ = std::make_unique<TerminationSignals>();
        connect(signals_.get(), &TerminationSignals::received, this, &TerminationGuard::onSignal);
    }
    return signals_->isActive();
}

// Every way of ending ends in one of two events: Quit on the application
// (which then closes the windows) or Close on the window. An ignored event
// tells the sender, the platform included, that the request was refused.
bool TerminationGuard::eventFilter(QObject* watched, QEvent* event) {
    const bool quitRequest =
        event->type() == QEvent::Quit && watched == QCoreApplication::instance();
    const bool closeRequest = event->type() == QEvent::Close && watched == window_;
    if ((quitRequest || closeRequest) && !shouldTerminate()) {
        event->ignore();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

void TerminationGuard::onSignal() {
    if (shouldTerminate()) {
        QCoreApplication::quit();
    } else {
        signalPending_ = true;
    }
}

void TerminationGuard::onBusyChanged() {
    if (signalPending_ && shouldTerminate()) {
        signalPending_ = false;
        QCoreApplication::quit();
    }
}

}  // namespace app
