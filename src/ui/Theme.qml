pragma Singleton
import QtQuick

// Colours, type sizes and the few metrics that several screens share. Colours
// come from the desktop's palette; green, orange and red have no palette role,
// so they are fixed to the familiar system hues, in a lighter cut on dark themes.
QtObject {
    id: root

    readonly property SystemPalette palette: SystemPalette { colorGroup: SystemPalette.Active }
    readonly property SystemPalette disabledPalette: SystemPalette { colorGroup: SystemPalette.Disabled }
    readonly property bool dark: root.palette.window.hslLightness < 0.5

    readonly property color label: root.palette.windowText
    readonly property color secondary: Qt.rgba(root.label.r, root.label.g, root.label.b, 0.62)
    readonly property color controlBackground: root.palette.base
    readonly property color separator: Qt.rgba(root.label.r, root.label.g, root.label.b, root.dark ? 0.25 : 0.16)

    readonly property color green: root.dark ? "#30d158" : "#34c759"
    readonly property color orange: root.dark ? "#ff9f0a" : "#ff9500"
    readonly property color red: root.dark ? "#ff453a" : "#ff3b30"

    // Type: the desktop's body font, with a larger title and a smaller caption.
    readonly property font body: Qt.application.font
    readonly property real titlePointSize: Math.round(root.body.pointSize * 1.3)
    readonly property real captionPointSize: Math.max(root.body.pointSize - 1, 7)

    readonly property int columnWidth: 540
    readonly property int sectionSpacing: 14
}
