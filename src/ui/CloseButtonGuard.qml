pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Window

// Takes the close button off the window's title bar while removal is under
// way, and gives it back afterwards. The change is made one event-loop turn
// later, when the item is sure to be in its window; without a window it is
// skipped. The window's own close handler refuses as well, for window systems
// that ignore the hint.
Item {
    id: root

    required property bool isBusy

    // The window's flags before the first change, restored when not busy.
    property var savedFlags: undefined

    visible: false

    function apply() {
        const window = root.Window.window
        if (!window)
            return
        if (root.isBusy) {
            if (root.savedFlags === undefined)
                root.savedFlags = window.flags
            window.flags = (root.savedFlags | Qt.CustomizeWindowHint | Qt.WindowTitleHint
                            | Qt.WindowSystemMenuHint | Qt.WindowMinimizeButtonHint)
                           & ~Qt.WindowCloseButtonHint
        } else if (root.savedFlags !== undefined) {
            window.flags = root.savedFlags
        }
    }

    onIsBusyChanged: Qt.callLater(root.apply) // qmllint disable type
    Component.onCompleted: Qt.callLater(root.apply) // qmllint disable type
}
