import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtTest
import UninstallTavio
import UninstallTavio.App

// Header, Card, PathRow, the shared button and the symbol table.
TestCase {
    id: testCase
    name: "SharedPieces"
    width: 492
    height: 600
    visible: true
    when: windowShown

    Component {
        id: pathRowComponent
        PathRow {
            width: 492
        }
    }

    Component {
        id: headerComponent
        Header {
            width: 492
        }
    }

    Component {
        id: cardComponent
        Card {
            width: 300
            Rectangle {
                implicitWidth: 300
                implicitHeight: 40
            }
        }
    }

    Component {
        id: buttonComponent
        ActionButton {
            property int clicks: 0
            text: "Press me"
            onClicked: clicks += 1
        }
    }

    Component {
        id: symbolComponent
        SymbolImage {}
    }

    SystemPalette {
        id: activePalette
        colorGroup: SystemPalette.Active
    }

    SystemPalette {
        id: disabledPalette
        colorGroup: SystemPalette.Disabled
    }

    // Colours are compared as they are drawn (#AARRGGBB), however they were made.
    function compareColor(actual, expected) {
        compare(String(actual), String(expected))
    }

    function pathTexts(row) {
        const repeater = findChild(row, "rowPaths")
        const texts = []
        for (let i = 0; i < repeater.count; ++i)
            texts.push(repeater.itemAt(i).text)
        return texts
    }

    function test_pathRowWithOnlySymbolAndTitle() {
        const row = createTemporaryObject(pathRowComponent, testCase, { symbol: "checkmark", title: "Only a title" })
        verify(row)
        compare(findChild(row, "rowTitle").text, "Only a title")
        compare(findChild(row, "rowSymbol").symbol, "checkmark")
        compare(findChild(row, "rowPaths").count, 0)
        verify(!findChild(row, "rowReason").visible)
        verify(!findChild(row, "rowTrailing").visible)
        // Nothing but the title and the padding make up the height.
        const title = findChild(row, "rowTitle")
        compare(row.implicitHeight, Math.max(title.implicitHeight, findChild(row, "rowSymbol").implicitHeight + 1) + 16)
        compareColor(findChild(row, "rowSymbol").color, Theme.secondary)
    }

    function test_pathRowReasonIsSecondaryWithoutWarning() {
        const row = createTemporaryObject(pathRowComponent, testCase,
                                          { symbol: "gearshape", title: "Settings", reason: "Something odd" })
        const reason = findChild(row, "rowReason")
        verify(reason.visible)
        compare(reason.text, "Something odd")
        compareColor(reason.color, Theme.secondary)
        compareColor(findChild(row, "rowSymbol").color, Theme.secondary)
    }

    function test_pathRowWarningIsOrange() {
        const row = createTemporaryObject(pathRowComponent, testCase,
                                          { symbol: "exclamationmark.triangle", title: "Tavio app",
                                            reason: "Skipped: not a verified Tavio app", warning: true })
        compareColor(findChild(row, "rowReason").color, Theme.orangeText)
        compareColor(findChild(row, "rowSymbol").color, Theme.orange)
    }

    function test_pathRowPathsInOrderSelectableAndMonospaced() {
        const row = createTemporaryObject(pathRowComponent, testCase,
                                          { symbol: "gearshape", title: "Settings",
                                            paths: ["~/Library/Preferences/b.plist", "~/Library/a"], trailing: "Found" })
        compare(pathTexts(row), ["~/Library/Preferences/b.plist", "~/Library/a"])
        const first = findChild(row, "rowPaths").itemAt(0)
        verify(first.readOnly)
        verify(first.selectByMouse)
        compare(first.font.family, SystemFonts.fixed.family)
        compareColor(first.color, Theme.secondary)
        const trailing = findChild(row, "rowTrailing")
        verify(trailing.visible)
        compare(trailing.text, "Found")
        compareColor(trailing.color, Theme.secondary)
    }

    function test_pathRowIsOneAccessibleItem() {
        const row = createTemporaryObject(pathRowComponent, testCase,
                                          { symbol: "gearshape", title: "Settings",
                                            paths: ["~/a", "~/b"], reason: "Why", trailing: "Found" })
        compare(row.Accessible.role, Accessible.ListItem)
        compare(row.Accessible.name, "Settings")
        compare(row.Accessible.description, "~/a, ~/b, Why, Found")
        verify(findChild(row, "rowTitle").Accessible.ignored)
        verify(findChild(row, "rowSymbol").Accessible.ignored)
    }

    function test_pathRowLongTextWraps() {
        const longPath = "~/Library/Application Support/" + "VeryLongFolderName/".repeat(12) + "file"
        const row = createTemporaryObject(pathRowComponent, testCase,
                                          { symbol: "gearshape", title: "A title ".repeat(20),
                                            paths: [longPath], reason: "A reason ".repeat(20) })
        waitForRendering(row)
        compare(row.width, 492)
        verify(findChild(row, "rowTitle").lineCount > 1)
        verify(findChild(row, "rowReason").lineCount > 1)
        verify(findChild(row, "rowPaths").itemAt(0).lineCount > 1)
        verify(findChild(row, "rowTitle").width <= 492 - 24)
    }

    function test_headerWithoutSymbol() {
        const header = createTemporaryObject(headerComponent, testCase, { title: "Title", detail: "Detail" })
        compare(findChild(header, "headerTitle").text, "Title")
        compare(findChild(header, "headerDetail").text, "Detail")
        compareColor(findChild(header, "headerDetail").color, Theme.secondary)
        compare(findChild(header, "headerTitle").font.weight, Font.DemiBold)
        verify(!findChild(header, "headerSymbol").visible)
        compare(header.spacing, 14)
    }

    function test_headerWithSymbol() {
        const header = createTemporaryObject(headerComponent, testCase,
                                             { title: "Done", detail: "Detail", symbol: "checkmark.circle.fill",
                                               symbolColor: Theme.green })
        const symbol = findChild(header, "headerSymbol")
        verify(symbol.visible)
        compare(symbol.symbol, "checkmark.circle.fill")
        compareColor(symbol.color, Theme.green)
        verify(symbol.Accessible.ignored)
    }

    function test_headerIsOneAccessibleHeading() {
        const header = createTemporaryObject(headerComponent, testCase, { title: "Title", detail: "Detail" })
        compare(header.Accessible.role, Accessible.Heading)
        compare(header.Accessible.name, "Title")
        compare(header.Accessible.description, "Detail")
    }

    function test_headerDetailWrapsNeverTruncates() {
        const header = createTemporaryObject(headerComponent, testCase,
                                             { title: "Title", detail: "A long explanation. ".repeat(30) })
        waitForRendering(header)
        const detail = findChild(header, "headerDetail")
        verify(detail.lineCount > 3)
        verify(!detail.truncated)
        compare(detail.elide, Text.ElideNone)
        compare(header.width, 492)
    }

    function test_card() {
        const card = createTemporaryObject(cardComponent, testCase)
        compare(card.radius, 10)
        compareColor(card.color, Theme.controlBackground)
        compareColor(card.border.color, Theme.separator)
        compare(card.implicitHeight, 40)
    }

    function test_buttonAnswersThePressAction() {
        const button = createTemporaryObject(buttonComponent, testCase)
        compare(button.Accessible.role, Accessible.Button)
        compare(button.Accessible.name, "Press me")
        button.Accessible.pressAction()
        compare(button.clicks, 1)
        button.enabled = false
        button.Accessible.pressAction()
        compare(button.clicks, 1)
    }

    function test_disabledButtonLetteringIsGreyed_data() {
        return [
            { tag: "plain", prominent: false, destructive: false },
            { tag: "destructive", prominent: false, destructive: true },
            { tag: "prominent", prominent: true, destructive: false },
            { tag: "prominent destructive", prominent: true, destructive: true },
        ]
    }

    // An unavailable action must look unavailable, whatever its kind.
    function test_disabledButtonLetteringIsGreyed(data) {
        verify(String(disabledPalette.buttonText) !== String(activePalette.buttonText),
               "the palette has no distinct disabled lettering")
        const button = createTemporaryObject(buttonComponent, testCase,
                                             { prominent: data.prominent, destructive: data.destructive })
        button.enabled = false
        compareColor(button.contentItem.color, disabledPalette.buttonText)
        button.enabled = true
        verify(String(button.contentItem.color) !== String(disabledPalette.buttonText))
    }

    function test_everySymbolHasAnIcon_data() {
        return ["gearshape", "doc.on.doc", "clock.arrow.circlepath", "internaldrive", "list.bullet.rectangle",
                "app", "checkmark", "exclamationmark.triangle", "exclamationmark.triangle.fill", "circle",
                "ellipsis.circle", "checkmark.circle.fill"].map(name => ({ tag: name, name: name }))
    }

    function test_everySymbolHasAnIcon(data) {
        verify(String(Symbols.source(data.name)) !== "")
        const image = createTemporaryObject(symbolComponent, testCase, { symbol: data.name, color: "red" })
        tryCompare(image, "status", Image.Ready)
        verify(image.implicitWidth > 0)
    }

    function test_unknownSymbolDrawsNothing() {
        compare(String(Symbols.source("no.such.symbol")), "")
    }
}
