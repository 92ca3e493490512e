import QtQuick
import QtQuick.Controls
import QtTest
import UninstallTavio
import UninstallTavio.App

TestCase {
    id: testCase
    name: "ReviewView"
    width: 540
    height: 800
    visible: true
    when: windowShown

    Inventory {
        id: inventory
    }

    Component {
        id: modelComponent
        FakeModel {}
    }

    Component {
        id: screenComponent
        ReviewView {
            width: 492
        }
    }

    property var model
    property var screen

    function init() {
        model = createTemporaryObject(modelComponent, testCase)
        model.items = [inventory.present(UninstallerModel.Category.Settings, "~/Library/Preferences/org.tavio.plist")]
        model.removableCount = 1
        screen = createTemporaryObject(screenComponent, testCase, { model: model })
        verify(screen)
        waitForRendering(screen)
    }

    function compareColor(actual, expected) {
        compare(String(actual), String(expected))
    }

    function row(category) {
        return findChild(screen, "reviewRow_" + category)
    }

    function pathsOf(pathRow) {
        const repeater = findChild(pathRow, "rowPaths")
        const texts = []
        for (let i = 0; i < repeater.count; ++i)
            texts.push(repeater.itemAt(i).text)
        return texts
    }

    function test_header() {
        model.userName = "bob"
        compare(findChild(screen, "headerTitle").text, "Uninstall Tavio?")
        compare(findChild(screen, "headerDetail").text,
                "This permanently removes Tavio and its data for the user “bob”. Other users on this Mac are not affected.")
        verify(!findChild(screen, "headerSymbol").visible)
    }

    function test_categoriesInOrderWithTitles() {
        const expected = [[UninstallerModel.Category.Settings, "Settings"],
                          [UninstallerModel.Category.TorrentCopies, "Recent torrent copies"],
                          [UninstallerModel.Category.History, "Playback history and positions"],
                          [UninstallerModel.Category.Cache, "Temporary cache and update downloads"],
                          [UninstallerModel.Category.LogsAndState, "Logs and saved window state"],
                          [UninstallerModel.Category.App, "Tavio app"]]
        let previousY = -1
        for (const [category, title] of expected) {
            const r = row(category)
            verify(r, category)
            compare(r.title, title)
            const y = r.mapToItem(screen, 0, 0).y
            verify(y > previousY, category + " comes after the one before")
            previousY = y
        }
        compare(findChild(screen, "reviewRows").count, 6)
    }

    function test_categorySymbols() {
        const symbols = [[UninstallerModel.Category.Settings, "gearshape"],
                         [UninstallerModel.Category.TorrentCopies, "doc.on.doc"],
                         [UninstallerModel.Category.History, "clock.arrow.circlepath"],
                         [UninstallerModel.Category.Cache, "internaldrive"],
                         [UninstallerModel.Category.LogsAndState, "list.bullet.rectangle"],
                         [UninstallerModel.Category.App, "app"]]
        for (const [category, symbol] of symbols) {
            compare(row(category).symbol, symbol, category)
            compareColor(findChild(row(category), "rowSymbol").color, Theme.secondary)
        }
    }

    function test_categoryWithNoItemsIsNotFound() {
        model.items = []
        const r = row(UninstallerModel.Category.History)
        compare(r.symbol, "clock.arrow.circlepath")
        compare(r.title, "Playback history and positions")
        compare(r.trailing, "Not found")
        compare(pathsOf(r), [])
        verify(!r.warning)
        verify(!findChild(r, "rowReason").visible)
    }

    function test_presentAndAbsentListsOnlyPresent() {
        model.items = [inventory.absent(UninstallerModel.Category.Cache, "~/Library/Caches/org.tavio"),
                       inventory.present(UninstallerModel.Category.Cache, "~/Library/HTTPStorages/org.tavio")]
        const r = row(UninstallerModel.Category.Cache)
        compare(pathsOf(r), ["~/Library/HTTPStorages/org.tavio"])
        compare(r.trailing, "Found")
        compare(r.symbol, "internaldrive")
        verify(findChild(r, "rowTrailing").visible)
    }

    function test_allAbsentListsEveryPathNotFound() {
        model.items = [inventory.absent(UninstallerModel.Category.LogsAndState, "~/Library/Logs/Tavio"),
                       inventory.absent(UninstallerModel.Category.LogsAndState, "~/Library/Saved Application State/org.tavio.savedState")]
        const r = row(UninstallerModel.Category.LogsAndState)
        compare(pathsOf(r), ["~/Library/Logs/Tavio", "~/Library/Saved Application State/org.tavio.savedState"])
        compare(r.trailing, "Not found")
    }

    function test_twoSkippedShowOrangeWarningWithFirstReasonOnly() {
        model.items = [inventory.skipped(UninstallerModel.Category.App, "/Applications/Tavio.app", "Skipped: not a verified Tavio app"),
                       inventory.skipped(UninstallerModel.Category.App, "~/Applications/Tavio.app", "Skipped: second reason")]
        const r = row(UninstallerModel.Category.App)
        compare(r.symbol, "exclamationmark.triangle")
        verify(r.warning)
        compareColor(findChild(r, "rowSymbol").color, Theme.orange)
        compare(r.reason, "Skipped: not a verified Tavio app")
        compareColor(findChild(r, "rowReason").color, Theme.orangeText)
        compare(r.trailing, "")
        verify(!findChild(r, "rowTrailing").visible)
        compare(pathsOf(r), ["/Applications/Tavio.app", "~/Applications/Tavio.app"])
    }

    function test_skippedBesidePresentAndAbsent() {
        model.items = [inventory.present(UninstallerModel.Category.App, "/Applications/Tavio.app"),
                       inventory.absent(UninstallerModel.Category.App, "~/Applications/Old.app"),
                       inventory.skipped(UninstallerModel.Category.App, "~/Applications/Tavio.app", "Skipped: not a verified Tavio app")]
        const r = row(UninstallerModel.Category.App)
        compare(pathsOf(r), ["/Applications/Tavio.app", "~/Applications/Tavio.app"])
        compare(r.symbol, "exclamationmark.triangle")
        compare(r.trailing, "")
    }

    function test_otherCategoriesAreUnaffectedBySkips() {
        model.items = [inventory.skipped(UninstallerModel.Category.App, "/Applications/Tavio.app", "Skipped"),
                       inventory.present(UninstallerModel.Category.Settings, "~/Library/Preferences/org.tavio.plist")]
        compare(row(UninstallerModel.Category.Settings).symbol, "gearshape")
        compare(row(UninstallerModel.Category.Settings).trailing, "Found")
        verify(!row(UninstallerModel.Category.Settings).warning)
    }

    function test_sectionsAndKeepRow() {
        const removal = findChild(screen, "removalSection")
        const keep = findChild(screen, "keepSection")
        compare(removal.heading, "Will be removed")
        compare(keep.heading, "Stays on your Mac")
        verify(removal.y < keep.y)
        const keepRow = findChild(screen, "keepRow")
        compare(keepRow.symbol, "checkmark")
        compare(keepRow.title, "Your original .torrent files, exports and downloaded files")
        compare(pathsOf(keepRow), [])
        compare(keepRow.trailing, "")
        compare(keepRow.reason, "")
        verify(!keepRow.warning)
    }

    function test_buttonsInOrder() {
        const cancel = findChild(screen, "cancelButton")
        const uninstall = findChild(screen, "uninstallButton")
        compare(cancel.text, "Cancel")
        compare(uninstall.text, "Uninstall…")
        verify(cancel.mapToItem(screen, 0, 0).x < uninstall.mapToItem(screen, 0, 0).x)
        verify(uninstall.prominent)
        verify(uninstall.destructive)
        verify(uninstall.filled)
        verify(!cancel.prominent)
        verify(uninstall.mapToItem(screen, 0, 0).y > findChild(screen, "keepSection").y)
    }

    function test_escapeQuits() {
        keyClick(Qt.Key_Escape)
        compare(model.calls, ["quit"])
        verify(!model.isConfirming)
    }

    function test_cancelQuits() {
        mouseClick(findChild(screen, "cancelButton"))
        compare(model.calls, ["quit"])
    }

    function test_returnAsksForConfirmation() {
        keyClick(Qt.Key_Return)
        verify(model.isConfirming)
        compare(model.calls, [])
    }

    function test_enterAsksForConfirmation() {
        keyClick(Qt.Key_Enter)
        verify(model.isConfirming)
    }

    function test_clickingUninstallAsksForConfirmation() {
        mouseClick(findChild(screen, "uninstallButton"))
        verify(model.isConfirming)
        compare(model.calls, [])
    }

    function test_nothingRemovableDisablesUninstall() {
        model.items = [inventory.skipped(UninstallerModel.Category.App, "/Applications/Tavio.app", "Skipped: not a verified Tavio app")]
        model.removableCount = 0
        const uninstall = findChild(screen, "uninstallButton")
        verify(!uninstall.enabled)
        verify(!uninstall.filled)
        keyClick(Qt.Key_Return)
        verify(!model.isConfirming)
        mouseClick(uninstall)
        verify(!model.isConfirming)
        uninstall.Accessible.pressAction()
        verify(!model.isConfirming)
        compare(model.calls, [])
        // Cancel is then the only way on.
        keyClick(Qt.Key_Escape)
        compare(model.calls, ["quit"])
    }

    function test_keysBelongToTheAlertWhileConfirming() {
        model.isConfirming = true
        keyClick(Qt.Key_Escape)
        keyClick(Qt.Key_Return)
        compare(model.calls, [])
        verify(model.isConfirming)
    }

    function test_longTextsWrapWithinTheColumn() {
        model.userName = "someone-with-an-extraordinarily-long-user-name-".repeat(4)
        model.items = [inventory.present(UninstallerModel.Category.Cache, "~/Library/Caches/" + "deeply/nested/folder/".repeat(10) + "x")]
        waitForRendering(screen)
        compare(screen.width, 492)
        verify(findChild(screen, "headerDetail").lineCount > 2)
        const paths = findChild(row(UninstallerModel.Category.Cache), "rowPaths").itemAt(0)
        verify(paths.lineCount > 1)
        verify(paths.mapToItem(screen, paths.width, 0).x <= 492)
        verify(screen.implicitWidth <= 492 || screen.width === 492)
    }
}
