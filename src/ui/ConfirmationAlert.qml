pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio

// The alert that has the last word before anything is deleted, shown exactly
// while the model is confirming. Return picks "Cancel" on purpose;
// "Uninstall" has no key and must be clicked.
Dialog {
    id: root
    objectName: "confirmationAlert"

    required property var model

    readonly property bool confirming: root.model.isConfirming

    function dismiss() {
        root.model.isConfirming = false
    }

    parent: Overlay.overlay
    anchors.centerIn: parent
    width: 400
    padding: 20
    modal: true
    closePolicy: Popup.NoAutoClose
    title: qsTr("Permanently remove Tavio and its data?")
    // The title is drawn beside the icon, as alerts do.
    header: null
    footer: null

    Overlay.modal: Rectangle {
        color: Qt.rgba(0, 0, 0, 0.2)
    }

    onConfirmingChanged: root.confirming ? root.open() : root.close()
    Component.onCompleted: {
        if (root.confirming)
            root.open()
    }
    onClosed: {
        if (root.model.isConfirming)
            root.dismiss()
    }

    contentItem: ColumnLayout { // qmllint disable deferred-property-id
        spacing: 16

        RowLayout {
            Layout.fillWidth: true
            spacing: 14

            Image {
                Layout.preferredWidth: 48
                Layout.preferredHeight: 48
                Layout.alignment: Qt.AlignTop
                source: Symbols.appIcon
                sourceSize: Qt.size(96, 96) // qmllint disable type
                Accessible.ignored: true
            }

            ColumnLayout {
                Layout.fillWidth: true
                Layout.alignment: Qt.AlignTop
                spacing: 6

                Label {
                    objectName: "alertTitle"
                    Layout.fillWidth: true
                    Layout.preferredWidth: 298
                    text: root.title
                    wrapMode: Text.Wrap
                    font.weight: Font.DemiBold
                }

                Label {
                    objectName: "alertMessage"
                    Layout.fillWidth: true
                    Layout.preferredWidth: 298
                    text: qsTr("This can’t be undone. The app, your settings, playback history and positions, recent torrent copies and cache are deleted. If Tavio is open, it is asked to quit first.")
                    wrapMode: Text.Wrap
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8

            Item {
                Layout.fillWidth: true
            }

            ActionButton {
                id: alertCancelButton
                objectName: "alertCancelButton"
                text: qsTr("Cancel")
                prominent: true
                onClicked: root.dismiss()
            }

            ActionButton {
                objectName: "alertUninstallButton"
                text: qsTr("Uninstall")
                destructive: true
                onClicked: {
                    root.dismiss()
                    root.model.startUninstall()
                }
            }
        }
    }

    Shortcut {
        sequences: ["Return", "Enter"]
        enabled: root.confirming
        onActivated: alertCancelButton.clicked()
    }

    Shortcut {
        sequences: [StandardKey.Cancel] // qmllint disable unqualified
        enabled: root.confirming
        onActivated: alertCancelButton.clicked()
    }
}
