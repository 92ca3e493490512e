pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Controls.Fusion.impl
import UninstallTavio

// The one push button of every screen. Screen readers can press it (Qt's
// button does nothing on the accessibility "Press" action by itself), and the
// prominent button, the one Return activates, is the screen's default. A
// prominent button is filled with the accent colour, or red when destructive;
// a plain destructive button has red lettering. Disabled buttons are always
// drawn plain, so an unavailable action does not shout.
Button {
    id: root

    property bool prominent: false
    property bool destructive: false

    horizontalPadding: 12

    readonly property bool filled: root.prominent && root.enabled
    readonly property color fillColor: root.destructive ? Theme.redFill : Theme.accentFill

    // Setting a palette colour sets it for every state, the disabled one
    // included, so the greyed lettering has to be chosen here too.
    palette.buttonText: !root.enabled ? Theme.disabledPalette.buttonText
                      : root.filled ? (root.destructive ? "white" : Theme.palette.highlightedText)
                      : root.destructive ? Theme.red
                      : Theme.palette.buttonText

    background: Item {
        implicitWidth: 80
        implicitHeight: 24

        ButtonPanel {
            anchors.fill: parent
            control: root
            visible: !root.filled
        }

        Rectangle {
            anchors.fill: parent
            visible: root.filled
            radius: 3
            color: root.down ? Qt.darker(root.fillColor, 1.15)
                 : root.hovered ? Qt.lighter(root.fillColor, 1.06)
                 : root.fillColor
            border.color: root.visualFocus ? Theme.palette.highlight : Qt.darker(root.fillColor, 1.2)
            border.width: root.visualFocus ? 2 : 1
        }
    }

    Accessible.role: Accessible.Button
    Accessible.name: root.text
    Accessible.defaultButton: root.prominent
    Accessible.onPressAction: {
        if (root.enabled)
            root.clicked()
    }
}
