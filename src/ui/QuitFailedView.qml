pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio

// Tavio would not quit in time, so nothing was deleted. "Try Again" starts the
// whole run again at once: the user already confirmed it.
ColumnLayout {
    id: root
    objectName: "quitFailedView"

    required property var model

    spacing: Theme.sectionSpacing

    Header {
        title: qsTr("Tavio Didn’t Quit")
        detail: qsTr("Nothing was deleted. Finish or stop playback, close any Tavio dialog, then try again. If Tavio still doesn’t quit, choose Tavio › Quit Tavio yourself.")
        symbol: "exclamationmark.triangle.fill"
        symbolColor: Theme.orange
    }

    RowLayout {
        Layout.fillWidth: true

        ActionButton {
            id: quitButton
            objectName: "quitButton"
            text: qsTr("Quit Uninstaller")
            onClicked: root.model.quit()
        }

        Item {
            Layout.fillWidth: true
        }

        ActionButton {
            id: tryAgainButton
            objectName: "tryAgainButton"
            text: qsTr("Try Again")
            prominent: true
            onClicked: root.model.startUninstall()
        }
    }

    Shortcut {
        sequences: [StandardKey.Cancel] // qmllint disable unqualified
        onActivated: quitButton.clicked()
    }

    Shortcut {
        sequences: ["Return", "Enter"]
        onActivated: tryAgainButton.clicked()
    }
}
