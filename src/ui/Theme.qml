pragma Singleton
pragma ComponentBehavior: Bound
import QtQuick
import UninstallTavio
import UninstallTavio.App

// Colours, type sizes and the few metrics that several screens share. Colours
// come from the desktop's palette; green, orange and red have no palette role,
// so they start from the familiar system hues (a lighter cut on dark themes)
// and are then made readable on the palette's surfaces.
QtObject {
    id: root

    readonly property SystemPalette palette: SystemPalette { colorGroup: SystemPalette.Active }
    readonly property SystemPalette disabledPalette: SystemPalette { colorGroup: SystemPalette.Disabled }
    readonly property bool dark: root.palette.window.hslLightness < 0.5

    readonly property color label: root.palette.windowText
    // Strong enough that a symbol in this colour still reaches 3:1 in a row
    // drawn at 0.6 opacity (a category still waiting).
    readonly property color secondary: Qt.rgba(root.label.r, root.label.g, root.label.b, 0.72)
    readonly property color controlBackground: root.palette.base
    readonly property color separator: Qt.rgba(root.label.r, root.label.g, root.label.b, root.dark ? 0.25 : 0.16)

    // What text and symbols are drawn on: the window, cards, plain buttons.
    readonly property var surfaces: [root.palette.window, root.palette.base, root.palette.button]

    // Status symbols (3:1) and the text that goes with them (4.5:1), in the
    // system hues, darkened on light palettes and lightened on dark ones
    // only as far as that takes.
    readonly property color green: ColorContrast.readable(root.dark ? "#30d158" : "#34c759", root.surfaces, 3.0)
    readonly property color orange: ColorContrast.readable(root.orangeHue, root.surfaces, 3.0)
    readonly property color orangeText: ColorContrast.readable(root.orangeHue, root.surfaces, 4.5)
    // Red lettering sits on plain buttons, whose face the style draws a
    // little lighter than the palette's button colour.
    readonly property color red: ColorContrast.readable(root.redHue, root.surfaces.concat([Qt.lighter(root.palette.button, 1.5)]), 4.5)

    // Fills of prominent buttons, dark enough under their white lettering.
    readonly property color accentFill: ColorContrast.readable(root.palette.highlight, [root.palette.highlightedText], 4.5)
    readonly property color redFill: ColorContrast.readable(root.redHue, ["white"], 4.5)

    readonly property color orangeHue: root.dark ? "#ff9f0a" : "#ff9500"
    readonly property color redHue: root.dark ? "#ff453a" : "#ff3b30"

    // Type: the desktop's body font, with a larger title and a smaller caption.
    readonly property font body: Qt.application.font // qmllint disable type
    readonly property real titlePointSize: Math.round(root.body.pointSize * 1.3)
    readonly property real captionPointSize: Math.max(root.body.pointSize - 1, 7)

    readonly property int columnWidth: 540
    readonly property int sectionSpacing: 14
}
