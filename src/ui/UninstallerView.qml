import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio
import UninstallTavio.App

// The window's whole content: the screen for the model's phase in a column of
// fixed width whose height follows the screen, the close-button guard, and the
// alert that has the last word before anything is deleted.
Item {
    id: root

    required property var model

    readonly property Item screen: loader.item as Item
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
            case UninstallerModel.PhaseKind.Finished: return finishedScreen
            case UninstallerModel.PhaseKind.Review: return reviewScreen
            case UninstallerModel.PhaseKind.Working: return workingScreen
            case UninstallerModel.PhaseKind.QuitFailed: return quitFailedScreen
            case UninstallerModel.PhaseKind.NothingToRemove: return nothingToRemoveScreen
            }
            return null
        }
    }

    // The loader makes the screens in a context of its own, where Qt 6.4
    // refuses bound components; so these stay unbound, reach the model
    // through root, and tell qmllint so line by line.
    Component {
        id: reviewScreen
        ReviewView { model: root.model } // qmllint disable unqualified
    }

    Component {
        id: workingScreen
        WorkingView { model: root.model } // qmllint disable unqualified
    }

    Component {
        id: quitFailedScreen
        QuitFailedView { model: root.model } // qmllint disable unqualified
    }

    Component {
        id: finishedScreen
        FinishedView {
            model: root.model // qmllint disable unqualified
            report: root.model.report // qmllint disable unqualified
        }
    }

    Component {
        id: nothingToRemoveScreen
        NothingToRemoveView {
            userName: root.model.userName // qmllint disable unqualified
            onQuitRequested: root.model.quit() // qmllint disable unqualified
        }
    }

    CloseButtonGuard {
        isBusy: root.model.isBusy
    }

    // Shown exactly while the model is confirming. It is made the first time
    // the model confirms, and kept from then on: the review's first frame has
    // no use for it, and making it takes about as long as drawing that frame.
    Loader {
        id: alertLoader
        active: false
        sourceComponent: Component {
            ConfirmationAlert {
                model: root.model // qmllint disable unqualified
            }
        }

        Connections {
            target: root.model
            function onIsConfirmingChanged() {
                if (root.model.isConfirming)
                    alertLoader.active = true
            }
        }

        Component.onCompleted: alertLoader.active = root.model.isConfirming
    }
}
