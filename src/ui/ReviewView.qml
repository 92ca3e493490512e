pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio
import UninstallTavio.App

// The first screen when something was found: whose data goes, what was found
// for each category, what stays, and the way on. "Uninstall…" only asks for
// confirmation; the removal starts from the alert.
ColumnLayout {
    id: root
    objectName: "reviewView"

    required property var model

    spacing: Theme.sectionSpacing

    // A heading over a card, both inset as the reader expects.
    component Section: ColumnLayout {
        id: section
        required property string heading
        default property alias cardContent: card.content

        Layout.fillWidth: true
        spacing: 4

        // Qt gives a Label the plain text role whatever is asked of it, so the
        // heading role sits on an item around it.
        Item {
            Layout.fillWidth: true
            implicitHeight: headingLabel.implicitHeight
            Accessible.role: Accessible.Heading
            Accessible.name: section.heading

            Label {
                id: headingLabel
                objectName: "sectionHeading"
                x: 10
                width: parent.width - 20
                text: section.heading
                elide: Text.ElideNone
                wrapMode: Text.Wrap
                font.weight: Font.DemiBold
                color: Theme.label
                Accessible.ignored: true
            }
        }

        Card {
            id: card
        }
    }

    Header {
        title: qsTr("Uninstall Tavio?")
        detail: qsTr("This permanently removes Tavio and its data for the user “%1”. Other users on this Mac are not affected.")
                .arg(root.model.userName)
    }

    Section {
        objectName: "removalSection"
        heading: qsTr("Will be removed")

        Repeater {
            objectName: "reviewRows"
            model: CategoryRows {
                items: root.model.items
            }

            ColumnLayout {
                id: entry
                required property int index
                required property int category
                required property string symbol
                required property string title
                required property var paths
                required property string trailing
                required property string reason
                required property bool warning

                Layout.fillWidth: true
                spacing: 0

                Divider {
                    visible: entry.index > 0
                }

                PathRow {
                    objectName: "reviewRow_" + entry.category
                    symbol: entry.symbol
                    title: entry.title
                    paths: entry.paths
                    trailing: entry.trailing
                    reason: entry.reason
                    warning: entry.warning
                }
            }
        }
    }

    Section {
        objectName: "keepSection"
        heading: qsTr("Stays on your Mac")

        PathRow {
            objectName: "keepRow"
            symbol: "checkmark"
            title: qsTr("Your original .torrent files, exports and downloaded files")
        }
    }

    RowLayout {
        Layout.fillWidth: true

        ActionButton {
            id: cancelButton
            objectName: "cancelButton"
            text: qsTr("Cancel")
            onClicked: root.model.quit()
        }

        Item {
            Layout.fillWidth: true
        }

        ActionButton {
            id: uninstallButton
            objectName: "uninstallButton"
            text: qsTr("Uninstall…")
            prominent: true
            destructive: true
            enabled: root.model.removableCount > 0
            onClicked: root.model.isConfirming = true
        }
    }

    // While the confirmation alert is up, its own keys apply instead.
    Shortcut {
        sequences: [StandardKey.Cancel] // qmllint disable unqualified
        enabled: !root.model.isConfirming
        onActivated: cancelButton.clicked()
    }

    Shortcut {
        sequences: ["Return", "Enter"]
        enabled: !root.model.isConfirming && uninstallButton.enabled
        onActivated: uninstallButton.clicked()
    }
}
