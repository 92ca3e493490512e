import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio

// The window's whole content: the screen for the model's phase in a column of
// fixed width whose height follows the screen, the close-button guard, and the
// alert that has the last word before anything is deleted.
Item {
    id: root

    required property var model

    readonly property Item screen: loader.item
    readonly property int topPadding: 8
    readonly property int bottomPadding: 20
    readonly property int sidePadding: 24

    implicitWidth: Theme.columnWidth
    implicitHeight: root.topPadding + loader.implicitHeight + root.bottomPadding

    Loader {
        id: loader
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.leftMargin: root.sidePadding
        anchors.rightMargin: root.sidePadding
        anchors.topMargin: root.topPadding
        // While the alert is up the screen behind it takes no input of any
        // kind, screen readers' button presses included.
        enabled: !root.model.isConfirming

        sourceComponent: {
            switch (root.model.phase) {
            case "finished": return finishedScreen
            case "review": return reviewScreen
            case "working": return workingScreen
            case "quitFailed": return quitFailedScreen
            case "nothingToRemove": return nothingToRemoveScreen
            }
            return null
        }
    }

    Component {
        id: reviewScreen
        ReviewView { model: root.model }
    }

    Component {
        id: workingScreen
        WorkingView { model: root.model }
    }

    Component {
        id: quitFailedScreen
        QuitFailedView { model: root.model }
    }

    Component {
        id: finishedScreen
        FinishedView {
            model: root.model
            report: root.model.report
        }
    }

    Component {
        id: nothingToRemoveScreen
        NothingToRemoveView {
            userName: root.model.userName
            onQuitRequested: root.model.quit()
        }
    }

    CloseButtonGuard {
        isBusy: root.model.isBusy
    }

    // Shown exactly while the model is confirming. Return picks "Cancel" on
    // purpose; "Uninstall" has no key and must be clicked.
    Dialog {
        id: alert
        objectName: "confirmationAlert"

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

        onConfirmingChanged: alert.confirming ? alert.open() : alert.close()
        Component.onCompleted: {
            if (alert.confirming)
                alert.open()
        }
        onClosed: {
            if (root.model.isConfirming)
                alert.dismiss()
        }

        contentItem: ColumnLayout {
            spacing: 16

            RowLayout {
                Layout.fillWidth: true
                spacing: 14

                Image {
                    Layout.preferredWidth: 48
                    Layout.preferredHeight: 48
                    Layout.alignment: Qt.AlignTop
                    source: Symbols.appIcon
                    sourceSize: Qt.size(96, 96)
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
                        text: alert.title
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
                    onClicked: alert.dismiss()
                }

                ActionButton {
                    objectName: "alertUninstallButton"
                    text: qsTr("Uninstall")
                    destructive: true
                    onClicked: {
                        alert.dismiss()
                        root.model.startUninstall()
                    }
                }
            }
        }

        Shortcut {
            sequences: ["Return", "Enter"]
            enabled: alert.confirming
            onActivated: alertCancelButton.clicked()
        }

        Shortcut {
            sequences: [StandardKey.Cancel]
            enabled: alert.confirming
            onActivated: alertCancelButton.clicked()
        }
    }
}
