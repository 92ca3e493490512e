import QtQuick
import QtQuick.Controls
import UninstallTavio

// The one push button of every screen. Screen readers can press it (Qt's
// button does nothing on the accessibility "Press" action by itself). A
// prominent button is filled with the accent colour; a destructive one is red,
// filled when prominent and red-lettered otherwise.
Button {
    id: root

    property bool prominent: false
    property bool destructive: false

    highlighted: root.prominent && root.enabled
    palette.highlight: root.destructive ? Theme.red : Theme.palette.highlight
    palette.highlightedText: root.destructive ? "white" : Theme.palette.highlightedText
    palette.buttonText: root.destructive && root.enabled ? Theme.red : Theme.palette.buttonText

    Accessible.role: Accessible.Button
    Accessible.name: root.text
    Accessible.onPressAction: {
        if (root.enabled)
            root.clicked()
    }
}
