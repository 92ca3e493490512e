pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio

// Nothing of Tavio was found for this user; the only way on is to quit.
ColumnLayout {
    id: root
    objectName: "nothingToRemoveView"

    required property string userName

    // The window decides how to quit; this screen only asks.
    signal quitRequested()

    spacing: Theme.sectionSpacing

    Header {
        title: qsTr("Tavio Isn’t Installed")
        detail: qsTr("No Tavio app or app data was found for “%1”. Nothing was changed.").arg(root.userName)
    }

    RowLayout {
        Layout.fillWidth: true

        Item {
            Layout.fillWidth: true
        }

        ActionButton {
            id: quitButton
            objectName: "quitButton"
            text: qsTr("Quit")
            prominent: true
            onClicked: root.quitRequested()
        }
    }

    Shortcut {
        sequences: ["Return", "Enter"]
        onActivated: quitButton.clicked()
    }
}
