pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls.impl
import UninstallTavio

// One symbol, tinted. Decorative: the text beside it says the same thing, so
// screen readers skip it.
IconImage {
    id: root

    required property string symbol
    property int size: 16

    source: Symbols.source(root.symbol)
    sourceSize: Qt.size(root.size, root.size) // qmllint disable type
    fillMode: Image.PreserveAspectFit
    Accessible.ignored: true
}
