pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import UninstallTavio
import UninstallTavio.App

// One line of a card: a symbol, a title, the paths it stands for (selectable,
// so they can be copied), an optional reason and an optional status at the
// right. A warning turns the symbol and the reason orange. Screen readers
// read the whole row as one item.
Item {
    id: root

    required property string symbol
    required property string title
    property var paths: []
    // Empty texts are left out.
    property string trailing: ""
    property string reason: ""
    property bool warning: false

    Layout.fillWidth: true
    implicitWidth: row.implicitWidth + 24
    implicitHeight: row.implicitHeight + 16

    Accessible.role: Accessible.ListItem
    Accessible.name: root.title
    Accessible.description: [].concat(root.paths, [root.reason, root.trailing]) // qmllint disable type
                              .filter(text => text !== "").join(", ")

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.leftMargin: 12
        anchors.rightMargin: 12
        anchors.topMargin: 8
        anchors.bottomMargin: 8
        spacing: 10

        SymbolImage {
            objectName: "rowSymbol"
            Layout.preferredWidth: 18
            Layout.alignment: Qt.AlignTop | Qt.AlignHCenter
            Layout.topMargin: 1
            symbol: root.symbol
            color: root.warning ? Theme.orange : Theme.secondary
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.alignment: Qt.AlignTop
            spacing: 2

            Label {
                objectName: "rowTitle"
                Layout.fillWidth: true
                text: root.title
                wrapMode: Text.Wrap
                font.weight: Font.Medium
                color: Theme.label
                Accessible.ignored: true
            }

            Repeater {
                objectName: "rowPaths"
                model: root.paths

                TextEdit {
                    required property string modelData
                    Layout.fillWidth: true
                    text: modelData
                    readOnly: true
                    selectByMouse: true
                    wrapMode: TextEdit.Wrap
                    font.family: SystemFonts.fixed.family // qmllint disable type
                    font.pointSize: Theme.captionPointSize
                    color: Theme.secondary
                    selectionColor: Theme.palette.highlight
                    selectedTextColor: Theme.palette.highlightedText
                    Accessible.ignored: true
                }
            }

            Label {
                objectName: "rowReason"
                Layout.fillWidth: true
                visible: root.reason !== ""
                text: root.reason
                wrapMode: Text.Wrap
                font.pointSize: Theme.captionPointSize
                color: root.warning ? Theme.orangeText : Theme.secondary
                Accessible.ignored: true
            }
        }

        Item {
            Layout.preferredWidth: 8
            Layout.minimumWidth: 8
        }

        Label {
            objectName: "rowTrailing"
            Layout.alignment: Qt.AlignTop
            visible: root.trailing !== ""
            text: root.trailing
            font.pointSize: Theme.captionPointSize
            color: Theme.secondary
            Accessible.ignored: true
        }
    }
}
