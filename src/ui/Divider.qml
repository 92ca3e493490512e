pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Layouts
import UninstallTavio

// A hairline between two rows of a card, from edge to edge.
Rectangle {
    Layout.fillWidth: true
    implicitHeight: 1
    color: Theme.separator
    Accessible.ignored: true
}
