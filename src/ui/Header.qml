pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio

// The top of every screen: the uninstaller's icon, a title with an optional
// tinted symbol, and an explanation that wraps onto as many lines as it needs.
// Screen readers meet it as one heading.
RowLayout {
    id: root

    required property string title
    required property string detail
    // An empty name means no symbol.
    property string symbol: ""
    property color symbolColor: Theme.secondary

    Layout.fillWidth: true
    spacing: 14

    Accessible.role: Accessible.Heading
    Accessible.name: root.title
    Accessible.description: root.detail

    Image {
        Layout.preferredWidth: 56
        Layout.preferredHeight: 56
        Layout.alignment: Qt.AlignTop
        source: Symbols.appIcon
        sourceSize: Qt.size(112, 112) // qmllint disable type
        fillMode: Image.PreserveAspectFit
        smooth: true
        Accessible.ignored: true
    }

    ColumnLayout {
        Layout.fillWidth: true
        Layout.alignment: Qt.AlignTop
        spacing: 4

        RowLayout {
            Layout.fillWidth: true
            spacing: 6

            SymbolImage {
                objectName: "headerSymbol"
                visible: root.symbol !== ""
                symbol: root.symbol
                color: root.symbolColor
                size: 18
                Layout.alignment: Qt.AlignVCenter
            }

            Label {
                objectName: "headerTitle"
                Layout.fillWidth: true
                text: root.title
                wrapMode: Text.Wrap
                font.pointSize: Theme.titlePointSize
                font.weight: Font.DemiBold
                color: Theme.label
                Accessible.ignored: true
            }
        }

        Label {
            objectName: "headerDetail"
            Layout.fillWidth: true
            text: root.detail
            wrapMode: Text.Wrap
            color: Theme.secondary
            Accessible.ignored: true
        }
    }
}
