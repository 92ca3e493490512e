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

    onClosing: close => {
        if (root.model.isBusy)
            close.accepted = false
    }

    UninstallerView {
        id: view
        anchors.fill: parent
        model: root.model
    }
}
