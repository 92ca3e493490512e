pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import UninstallTavio

// The uninstaller's one window: as wide as its column and exactly as tall as
// the current screen. Closing it is refused while items are being removed.
ApplicationWindow {
    id: root

    required property var model

    title: qsTr("Uninstall Tavio")
    width: view.implicitWidth
    height: view.implicitHeight
    minimumWidth: view.implicitWidth
    maximumWidth: view.implicitWidth
    minimumHeight: view.implicitHeight
    maximumHeight: view.implicitHeight
    visible: true

    // Qt Quick Controls 6.4 take their colours from the platform theme and
    // miss a palette the program chose for the desktop's colour scheme; the
    // application's palette is handed down here, so that every control, the
    // alert included, is drawn in the same one as the rest of the window.
    palette.active.window: Theme.palette.window
    palette.active.windowText: Theme.palette.windowText
    palette.active.base: Theme.palette.base
    palette.active.alternateBase: Theme.palette.alternateBase
    palette.active.text: Theme.palette.text
    palette.active.button: Theme.palette.button
    palette.active.buttonText: Theme.palette.buttonText
    palette.active.light: Theme.palette.light
    palette.active.midlight: Theme.palette.midlight
    palette.active.mid: Theme.palette.mid
    palette.active.dark: Theme.palette.dark
    palette.active.shadow: Theme.palette.shadow
    palette.active.highlight: Theme.palette.highlight
    palette.active.highlightedText: Theme.palette.highlightedText
    palette.inactive.window: Theme.palette.window
    palette.inactive.windowText: Theme.palette.windowText
    palette.inactive.base: Theme.palette.base
    palette.inactive.text: Theme.palette.text
    palette.inactive.button: Theme.palette.button
    palette.inactive.buttonText: Theme.palette.buttonText
    palette.inactive.highlight: Theme.palette.highlight
    palette.inactive.highlightedText: Theme.palette.highlightedText
    palette.disabled.window: Theme.disabledPalette.window
    palette.disabled.windowText: Theme.disabledPalette.windowText
    palette.disabled.base: Theme.disabledPalette.base
    palette.disabled.text: Theme.disabledPalette.text
    palette.disabled.button: Theme.disabledPalette.button
    palette.disabled.buttonText: Theme.disabledPalette.buttonText

    onClosing: close => {
        if (root.model.isBusy)
            close.accepted = false
    }

    // The desktop's own keys for quitting and closing. Both end where every
    // other way of quitting ends, so they are refused while removing.
    Shortcut {
        objectName: "quitShortcut"
        sequences: [StandardKey.Quit] // qmllint disable unqualified
        context: Qt.ApplicationShortcut
        onActivated: root.model.quit()
    }

    Shortcut {
        objectName: "closeShortcut"
        sequences: [StandardKey.Close] // qmllint disable unqualified
        context: Qt.ApplicationShortcut
        onActivated: root.close()
    }

    UninstallerView {
        id: view
        anchors.fill: parent
        model: root.model
    }
}
