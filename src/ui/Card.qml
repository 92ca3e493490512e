pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Layouts
import UninstallTavio

// A rounded, bordered panel that stacks its rows with no space between them;
// callers put their own dividers between rows.
Rectangle {
    id: root

    default property alias content: column.data

    Layout.fillWidth: true
    implicitWidth: column.implicitWidth
    implicitHeight: column.implicitHeight
    radius: 10
    color: Theme.controlBackground
    border.color: Theme.separator
    border.width: 1

    ColumnLayout {
        id: column
        width: root.width
        spacing: 0
    }
}
