pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio
import UninstallTavio.App

// The end of a run. A completed run says so and counts what was already gone;
// an incomplete one lists what is left with the reason for each, lets the user
// copy or reveal those paths, and "Try Again" only takes a fresh look, so
// anything more goes through the review and the confirmation again.
ColumnLayout {
    id: root
    objectName: "finishedView"

    required property var model
    required property var report

    readonly property bool completed: root.report.outcome === UninstallerModel.Outcome.Completed
    readonly property var remaining: root.report.remaining ?? []

    spacing: Theme.sectionSpacing

    Header {
        title: root.completed ? qsTr("Tavio Was Uninstalled") : qsTr("Uninstall Incomplete")
        detail: root.completed
                ? qsTr("The app and its data for “%1” were removed. Items that were already gone: %2. Your original .torrent files and downloads were not touched.")
                  .arg(root.model.userName).arg(Number(root.report.alreadyAbsentCount ?? 0).toFixed(0))
                : qsTr("Some items could not be removed. They are still on your Mac:")
        symbol: root.completed ? "checkmark.circle.fill" : "exclamationmark.triangle.fill"
        symbolColor: root.completed ? Theme.green : Theme.orange
    }

    ScrollView {
        id: scroller
        objectName: "remainingScroller"
        visible: !root.completed
        Layout.fillWidth: true
        Layout.preferredHeight: Math.min(remainingCard.implicitHeight, 220)
        contentWidth: availableWidth
        clip: true

        Card {
            id: remainingCard
            objectName: "remainingCard"
            width: scroller.availableWidth

            Repeater {
                objectName: "remainingRows"
                model: RemainingRows {
                    remaining: root.remaining
                }

                ColumnLayout {
                    id: entry
                    required property int index
                    required property string symbol
                    required property string title
                    required property var paths
                    required property string reason
                    required property bool warning

                    Layout.fillWidth: true
                    spacing: 0

                    Divider {
                        visible: entry.index > 0
                    }

                    PathRow {
                        symbol: entry.symbol
                        title: entry.title
                        paths: entry.paths
                        reason: entry.reason
                        warning: entry.warning
                    }
                }
            }
        }
    }

    RowLayout {
        objectName: "completedButtons"
        visible: root.completed
        Layout.fillWidth: true

        Item {
            Layout.fillWidth: true
        }

        ActionButton {
            id: doneQuitButton
            objectName: "doneQuitButton"
            text: qsTr("Quit")
            prominent: true
            onClicked: root.model.quit()
        }
    }

    // The two actions on what is left at the left, the two that end or
    // repeat the run at the right; when a language's words or a large font
    // make them too wide for one line, the right pair goes on a line of its
    // own below, still at the right.
    GridLayout {
        id: incompleteButtons
        objectName: "incompleteButtons"
        visible: !root.completed
        Layout.fillWidth: true
        columns: leftButtons.implicitWidth + rightButtons.implicitWidth + 2 * columnSpacing
                 <= root.width ? 2 : 1
        columnSpacing: 12
        rowSpacing: 8

        RowLayout {
            id: leftButtons
            Layout.fillWidth: true

            ActionButton {
                objectName: "copyPathsButton"
                text: qsTr("Copy Paths")
                onClicked: root.model.copyRemainingPaths()
            }

            ActionButton {
                objectName: "revealButton"
                text: qsTr("Reveal in Finder")
                onClicked: root.model.revealRemaining()
            }

            Item {
                Layout.fillWidth: true
            }
        }

        RowLayout {
            id: rightButtons
            Layout.alignment: Qt.AlignRight

            ActionButton {
                id: quitButton
                objectName: "quitButton"
                text: qsTr("Quit")
                onClicked: root.model.quit()
            }

            ActionButton {
                id: tryAgainButton
                objectName: "tryAgainButton"
                text: qsTr("Try Again")
                prominent: true
                onClicked: root.model.refresh()
            }
        }
    }

    Shortcut {
        sequences: ["Return", "Enter"]
        onActivated: root.completed ? doneQuitButton.clicked() : tryAgainButton.clicked()
    }

    Shortcut {
        sequences: [StandardKey.Cancel] // qmllint disable unqualified
        enabled: !root.completed
        onActivated: quitButton.clicked()
    }
}
