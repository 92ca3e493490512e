#include "app/SingleInstance.h"

namespace app {

// The system opens an app bundle only once and brings the running copy to
// the front itself; a second process started by hand just ends.
void offerActivation(QWindow*) {}

bool activateRunningCopy() {
    return false;
}

}  // namespace app
