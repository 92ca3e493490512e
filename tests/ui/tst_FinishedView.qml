import QtQuick
import QtQuick.Controls
import QtTest
import UninstallTavio
import UninstallTavio.App

TestCase {
    id: testCase
    name: "FinishedView"
    width: 540
    height: 900
    visible: true
    when: windowShown

    Component {
        id: modelComponent
        FakeModel {
            phase: UninstallerModel.PhaseKind.Finished
        }
    }

    Component {
        id: screenComponent
        FinishedView {
            width: 492
        }
    }

    property var model
    property var screen

    function show(report) {
        model = createTemporaryObject(modelComponent, testCase, { report: report, userName: "dave" })
        screen = createTemporaryObject(screenComponent, testCase, { model: model, report: report })
        verify(screen)
        waitForRendering(screen)
    }

    function completed(alreadyAbsent) {
        return { outcome: UninstallerModel.Outcome.Completed, alreadyAbsentCount: alreadyAbsent, remaining: [], results: [] }
    }

    function incomplete(count) {
        const remaining = []
        for (let i = 0; i < count; ++i)
            remaining.push({ path: "/home/dave/Library/Caches/org.tavio/part" + i, reason: "Permission denied" })
        return { outcome: UninstallerModel.Outcome.Incomplete, alreadyAbsentCount: 2, remaining: remaining, results: [] }
    }

    function compareColor(actual, expected) {
        compare(String(actual), String(expected))
    }

    function test_completedHeader() {
        show(completed(3))
        compare(findChild(screen, "headerTitle").text, "Tavio Was Uninstalled")
        compare(findChild(screen, "headerDetail").text,
                "The app and its data for “dave” were removed. Items that were already gone: 3. Your original .torrent files and downloads were not touched.")
        const symbol = findChild(screen, "headerSymbol")
        compare(symbol.symbol, "checkmark.circle.fill")
        compareColor(symbol.color, Theme.green)
    }

    function test_completedAlwaysCountsAlreadyGone() {
        show(completed(0))
        verify(findChild(screen, "headerDetail").text.includes("Items that were already gone: 0."))
    }

    function test_completedCountIsAPlainInteger() {
        show(completed(1234567))
        verify(findChild(screen, "headerDetail").text.includes("Items that were already gone: 1234567."))
    }

    function test_completedLayout() {
        show(completed(0))
        verify(!findChild(screen, "remainingScroller").visible)
        verify(!findChild(screen, "incompleteButtons").visible)
        const quit = findChild(screen, "doneQuitButton")
        verify(quit.visible)
        compare(quit.text, "Quit")
        verify(quit.prominent)
        compare(Math.round(quit.mapToItem(screen, quit.width, 0).x), 492)
    }

    function test_completedReturnQuits() {
        show(completed(0))
        keyClick(Qt.Key_Return)
        compare(model.calls, ["quit"])
    }

    function test_completedEscapeDoesNothing() {
        show(completed(0))
        keyClick(Qt.Key_Escape)
        compare(model.calls, [])
    }

    function test_incompleteHeader() {
        show(incomplete(1))
        compare(findChild(screen, "headerTitle").text, "Uninstall Incomplete")
        compare(findChild(screen, "headerDetail").text, "Some items could not be removed. They are still on your Mac:")
        const symbol = findChild(screen, "headerSymbol")
        compare(symbol.symbol, "exclamationmark.triangle.fill")
        compareColor(symbol.color, Theme.orange)
    }

    function test_otherOutcomesUseTheIncompleteLayout() {
        show({ outcome: UninstallerModel.Outcome.DidNotQuit, alreadyAbsentCount: 0, remaining: [], results: [] })
        compare(findChild(screen, "headerTitle").text, "Uninstall Incomplete")
    }

    function test_remainingRowShowsLastComponentAndFullPath() {
        show({ outcome: UninstallerModel.Outcome.Incomplete, alreadyAbsentCount: 0, results: [],
               remaining: [{ path: "/home/dave/Library/x/y", reason: "Permission denied" },
                           { path: "/home/dave/Library/Logs/Tavio/", reason: "Tavio is still running" }] })
        const rows = findChild(screen, "remainingRows")
        compare(rows.count, 2)
        const first = rows.itemAt(0)
        compare(first.title, "y")
        compare(first.paths, ["/home/dave/Library/x/y"])
        compare(first.reason, "Permission denied")
        compare(first.symbol, "exclamationmark.triangle")
        verify(first.warning)
        verify(!findChild(first, "rowTrailing").visible)
        compare(rows.itemAt(1).title, "Tavio")
        const pathRow = findChild(rows.itemAt(0), "rowTitle")
        compare(pathRow.text, "y")
        compareColor(findChild(rows.itemAt(0), "rowReason").color, Theme.orangeText)
        compareColor(findChild(rows.itemAt(0), "rowSymbol").color, Theme.orange)
        compare(findChild(rows.itemAt(0), "rowPaths").itemAt(0).text, "/home/dave/Library/x/y")
    }

    function test_incompleteButtonsInOrder() {
        show(incomplete(1))
        verify(!findChild(screen, "completedButtons").visible)
        const names = ["copyPathsButton", "revealButton", "quitButton", "tryAgainButton"]
        const texts = ["Copy Paths", "Reveal in Finder", "Quit", "Try Again"]
        let previousX = -1
        for (let i = 0; i < names.length; ++i) {
            const button = findChild(screen, names[i])
            compare(button.text, texts[i])
            verify(button.visible)
            const x = button.mapToItem(screen, 0, 0).x
            verify(x > previousX, names[i])
            previousX = x
        }
        verify(findChild(screen, "tryAgainButton").prominent)
        verify(!findChild(screen, "quitButton").prominent)
    }

    function test_incompleteButtonsTooWideForOneLineWrapAtTheRight() {
        show(incomplete(1))
        const names = ["copyPathsButton", "revealButton", "quitButton", "tryAgainButton"]
        const oneLine = findChild(screen, "tryAgainButton").mapToItem(screen, 0, 0).y
        verify(findChild(screen, "copyPathsButton").mapToItem(screen, 0, 0).y === oneLine)
        // As narrow as longer words would make the buttons too wide.
        screen.width = 330
        waitForRendering(screen)
        const copy = findChild(screen, "copyPathsButton").mapToItem(screen, 0, 0)
        const reveal = findChild(screen, "revealButton").mapToItem(screen, 0, 0)
        const quit = findChild(screen, "quitButton").mapToItem(screen, 0, 0)
        const tryAgain = findChild(screen, "tryAgainButton")
        const tryAgainAt = tryAgain.mapToItem(screen, 0, 0)
        compare(copy.x, 0)
        compare(copy.y, reveal.y)
        verify(quit.y > copy.y, "Quit stays on the first line")
        compare(quit.y, tryAgainAt.y)
        verify(quit.x < tryAgainAt.x)
        compare(tryAgainAt.x + tryAgain.width, screen.width)
        for (const name of names) {
            const button = findChild(screen, name)
            const at = button.mapToItem(screen, 0, 0)
            verify(at.x >= 0 && at.x + button.width <= screen.width, name + " leaves the screen")
        }
        const buttons = findChild(screen, "incompleteButtons")
        verify(buttons.y + buttons.height <= screen.implicitHeight)
    }

    function test_incompleteReturnRefreshes() {
        show(incomplete(1))
        keyClick(Qt.Key_Return)
        compare(model.calls, ["refresh"])
    }

    function test_incompleteEscapeQuits() {
        show(incomplete(1))
        keyClick(Qt.Key_Escape)
        compare(model.calls, ["quit"])
    }

    function test_copyAndRevealHaveNoKeysButClick() {
        show(incomplete(1))
        keyClick(Qt.Key_C)
        keyClick(Qt.Key_R)
        keyClick(Qt.Key_Space)
        compare(model.calls, [])
        mouseClick(findChild(screen, "copyPathsButton"))
        mouseClick(findChild(screen, "revealButton"))
        mouseClick(findChild(screen, "quitButton"))
        mouseClick(findChild(screen, "tryAgainButton"))
        compare(model.calls, ["copyRemainingPaths", "revealRemaining", "quit", "refresh"])
    }

    function test_fewRowsDoNotScroll() {
        show(incomplete(1))
        const scroller = findChild(screen, "remainingScroller")
        const card = findChild(screen, "remainingCard")
        compare(scroller.height, card.implicitHeight)
    }

    function test_manyRowsScrollWithin220() {
        show(incomplete(40))
        const scroller = findChild(screen, "remainingScroller")
        compare(scroller.height, 220)
        verify(scroller.contentHeight > 220)
        const buttons = findChild(screen, "incompleteButtons")
        verify(buttons.visible)
        verify(buttons.y >= scroller.y + scroller.height)
        verify(buttons.y + buttons.height <= screen.implicitHeight)
        verify(screen.implicitHeight < 500)
        // The last row is reachable by scrolling.
        const flickable = scroller.contentItem
        flickable.contentY = flickable.contentHeight - flickable.height
        verify(flickable.contentY > 0)
    }
}
