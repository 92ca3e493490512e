pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio
import UninstallTavio.App

// The screen of a run. While Tavio is asked to quit nothing has been touched,
// so "Cancel" still works; once removal has begun it cannot be stopped, and
// the button stays in place but inert so the layout does not jump.
ColumnLayout {
    id: root
    objectName: "workingView"

    required property var model

    readonly property bool waiting: root.model.waitingForQuit

    spacing: Theme.sectionSpacing

    // One category's progress. The status word is what a screen reader says
    // after the title.
    component StatusRow: Item {
        id: statusRow
        required property string title
        required property int status
        required property string statusSymbol
        required property string statusText

        Layout.fillWidth: true
        implicitHeight: line.implicitHeight + 16
        opacity: statusRow.status === UninstallerModel.RowState.Pending ? 0.6 : 1.0

        Accessible.role: Accessible.ListItem
        Accessible.name: statusRow.title
        Accessible.description: statusRow.statusText

        RowLayout {
            id: line
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            anchors.topMargin: 8
            anchors.bottomMargin: 8
            spacing: 10

            SymbolImage {
                objectName: "statusSymbol"
                Layout.preferredWidth: 18
                Layout.alignment: Qt.AlignVCenter | Qt.AlignHCenter
                symbol: statusRow.statusSymbol
                color: statusRow.status === UninstallerModel.RowState.Done ? Theme.green
                     : statusRow.status === UninstallerModel.RowState.Failed ? Theme.orange
                     : Theme.secondary
            }

            Label {
                Layout.fillWidth: true
                text: statusRow.title
                wrapMode: Text.Wrap
                color: Theme.label
                Accessible.ignored: true
            }
        }
    }

    Header {
        title: root.waiting ? qsTr("Waiting for Tavio to Quit…") : qsTr("Removing Tavio…")
        detail: root.waiting
                ? qsTr("Tavio is saving your playback position and cleaning up its temporary files.")
                : qsTr("Don’t restart your Mac or open Tavio until this finishes.")
    }

    ProgressLine {
        objectName: "progressBar"
        Layout.fillWidth: true
        indeterminate: root.waiting
        from: 0
        to: Math.max(Object.keys(root.model.rowStates).length, 1)
        value: root.model.finishedCount
        Accessible.name: root.waiting ? qsTr("Waiting for Tavio") : qsTr("Uninstall progress")
    }

    Card {
        objectName: "progressCard"
        visible: !root.waiting

        Repeater {
            objectName: "statusRows"
            model: CategoryRows {
                items: root.model.items
                rowStates: root.model.rowStates
            }

            ColumnLayout {
                id: entry
                required property int index
                required property int category
                required property string title
                required property int status
                required property string statusSymbol
                required property string statusText

                Layout.fillWidth: true
                spacing: 0

                Divider {
                    visible: entry.index > 0
                }

                StatusRow {
                    objectName: "statusRow_" + entry.category
                    title: entry.title
                    status: entry.status
                    statusSymbol: entry.statusSymbol
                    statusText: entry.statusText
                }
            }
        }
    }

    RowLayout {
        Layout.fillWidth: true

        ActionButton {
            id: cancelButton
            objectName: "cancelButton"
            text: qsTr("Cancel")
            enabled: root.waiting
            onClicked: {
                if (root.model.waitingForQuit)
                    root.model.cancel()
            }
        }

        Item {
            Layout.fillWidth: true
        }
    }

    Shortcut {
        sequences: [StandardKey.Cancel] // qmllint disable unqualified
        enabled: root.waiting
        onActivated: cancelButton.clicked()
    }
}
