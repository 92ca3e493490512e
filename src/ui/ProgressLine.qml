pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import UninstallTavio

// A slim progress bar in the accent colour. When indeterminate, a short
// segment sweeps across it for as long as it is shown.
ProgressBar {
    id: root

    background: Rectangle {
        implicitWidth: 200
        implicitHeight: 6
        radius: 3
        color: Theme.separator
    }

    contentItem: Item { // qmllint disable deferred-property-id
        implicitWidth: 200
        implicitHeight: 6
        clip: true

        Rectangle {
            visible: !root.indeterminate
            width: root.visualPosition * parent.width
            height: parent.height
            radius: 3
            color: Theme.palette.highlight
        }

        Rectangle {
            id: sweep
            visible: root.indeterminate
            width: parent.width * 0.3
            height: parent.height
            radius: 3
            color: Theme.palette.highlight

            NumberAnimation on x {
                running: root.indeterminate && root.visible
                from: -sweep.width
                to: sweep.parent.width
                duration: 1400
                loops: Animation.Infinite
                easing.type: Easing.InOutSine
            }
        }
    }
}
