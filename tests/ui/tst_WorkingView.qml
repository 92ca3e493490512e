import QtQuick
import QtQuick.Controls
import QtTest
import UninstallTavio
import UninstallTavio.App

TestCase {
    id: testCase
    name: "WorkingView"
    width: 540
    height: 800
    visible: true
    when: windowShown

    Inventory {
        id: inventory
    }

    Component {
        id: modelComponent
        FakeModel {
            phase: UninstallerModel.PhaseKind.Working
        }
    }

    Component {
        id: screenComponent
        WorkingView {
            width: 492
        }
    }

    property var model
    property var screen

    function init() {
        model = createTemporaryObject(modelComponent, testCase)
        model.items = [inventory.present(UninstallerModel.Category.Settings, "~/Library/Preferences/org.tavio.plist"),
                       inventory.present(UninstallerModel.Category.Cache, "~/Library/Caches/org.tavio"),
                       inventory.absent(UninstallerModel.Category.Cache, "~/Library/HTTPStorages/org.tavio"),
                       inventory.present(UninstallerModel.Category.App, "/Applications/Tavio.app")]
        screen = createTemporaryObject(screenComponent, testCase, { model: model })
        verify(screen)
        waitForRendering(screen)
    }

    function compareColor(actual, expected) {
        compare(String(actual), String(expected))
    }

    function statusRow(category) {
        return findChild(screen, "statusRow_" + category)
    }

    function setRows(states) {
        const rows = {}
        for (const id in states)
            rows["tree:" + id] = states[id]
        model.rowStates = rows
    }

    function compareStatus(category, symbol, color, value, opacity) {
        const r = statusRow(category)
        const symbolImage = findChild(r, "statusSymbol")
        compare(symbolImage.symbol, symbol, category)
        compareColor(symbolImage.color, color)
        compare(r.Accessible.description, value)
        compare(r.opacity, opacity)
    }

    function test_waitingFace() {
        model.waitingForQuit = true
        compare(findChild(screen, "headerTitle").text, "Waiting for Tavio to Quit…")
        compare(findChild(screen, "headerDetail").text,
                "Tavio is saving your playback position and cleaning up its temporary files.")
        verify(!findChild(screen, "headerSymbol").visible)
        const bar = findChild(screen, "progressBar")
        verify(bar.indeterminate)
        compare(bar.Accessible.name, "Waiting for Tavio")
        verify(!findChild(screen, "progressCard").visible)
        const cancel = findChild(screen, "cancelButton")
        compare(cancel.text, "Cancel")
        verify(cancel.enabled)
        verify(bar.y < cancel.mapToItem(screen, 0, 0).y)
    }

    function test_waitingEscapeCancels() {
        model.waitingForQuit = true
        keyClick(Qt.Key_Escape)
        compare(model.calls, ["cancel"])
    }

    function test_waitingCancelButtonCancels() {
        model.waitingForQuit = true
        mouseClick(findChild(screen, "cancelButton"))
        compare(model.calls, ["cancel"])
    }

    function test_waitingReturnDoesNothing() {
        model.waitingForQuit = true
        keyClick(Qt.Key_Return)
        compare(model.calls, [])
    }

    function test_removingFace() {
        setRows({ "~/Library/Preferences/org.tavio.plist": UninstallerModel.RowState.Done, "~/Library/Caches/org.tavio": UninstallerModel.RowState.Running,
                  "~/Library/HTTPStorages/org.tavio": UninstallerModel.RowState.Pending, "/Applications/Tavio.app": UninstallerModel.RowState.Pending })
        model.finishedCount = 1
        compare(findChild(screen, "headerTitle").text, "Removing Tavio…")
        compare(findChild(screen, "headerDetail").text, "Don’t restart your Mac or open Tavio until this finishes.")
        const bar = findChild(screen, "progressBar")
        verify(!bar.indeterminate)
        compare(bar.from, 0)
        compare(bar.to, 4)
        compare(bar.value, 1)
        compare(bar.Accessible.name, "Uninstall progress")
        const card = findChild(screen, "progressCard")
        verify(card.visible)
        verify(bar.y < card.y)
        verify(card.y < findChild(screen, "cancelButton").mapToItem(screen, 0, 0).y)
    }

    function test_removingRowsInOrderWithTitles() {
        const titles = ["Settings", "Recent torrent copies", "Playback history and positions",
                        "Temporary cache and update downloads", "Logs and saved window state", "Tavio app"]
        const categories = [UninstallerModel.Category.Settings, UninstallerModel.Category.TorrentCopies,
                            UninstallerModel.Category.History, UninstallerModel.Category.Cache,
                            UninstallerModel.Category.LogsAndState, UninstallerModel.Category.App]
        compare(findChild(screen, "statusRows").count, 6)
        let previousY = -1
        for (let i = 0; i < categories.length; ++i) {
            const r = statusRow(categories[i])
            compare(r.Accessible.name, titles[i])
            compare(r.Accessible.role, Accessible.ListItem)
            const y = r.mapToItem(screen, 0, 0).y
            verify(y > previousY)
            previousY = y
        }
    }

    function test_removingCancelIsInert() {
        setRows({ "~/Library/Preferences/org.tavio.plist": UninstallerModel.RowState.Running })
        const cancel = findChild(screen, "cancelButton")
        verify(cancel.visible)
        verify(!cancel.enabled)
        mouseClick(cancel)
        keyClick(Qt.Key_Escape)
        keyClick(Qt.Key_Return)
        cancel.Accessible.pressAction()
        compare(model.calls, [])
    }

    function test_emptyRowStatesGiveTotalOne() {
        model.rowStates = ({})
        model.finishedCount = 0
        const bar = findChild(screen, "progressBar")
        compare(bar.to, 1)
        compare(bar.value, 0)
    }

    function test_categoryWithoutRowStatesIsWaiting() {
        setRows({ "~/Library/Preferences/org.tavio.plist": UninstallerModel.RowState.Running })
        compareStatus(UninstallerModel.Category.History, "circle", Theme.secondary, "waiting", 0.6)
        compareStatus(UninstallerModel.Category.App, "circle", Theme.secondary, "waiting", 0.6)
    }

    function test_runningCategory() {
        setRows({ "~/Library/Preferences/org.tavio.plist": UninstallerModel.RowState.Running })
        compareStatus(UninstallerModel.Category.Settings, "ellipsis.circle", Theme.secondary, "removing", 1.0)
    }

    function test_doneCategory() {
        setRows({ "~/Library/Preferences/org.tavio.plist": UninstallerModel.RowState.Done })
        compareStatus(UninstallerModel.Category.Settings, "checkmark.circle.fill", Theme.green, "removed", 1.0)
    }

    function test_doneAndFailedIsFailed() {
        setRows({ "~/Library/Caches/org.tavio": UninstallerModel.RowState.Done, "~/Library/HTTPStorages/org.tavio": UninstallerModel.RowState.Failed })
        compareStatus(UninstallerModel.Category.Cache, "exclamationmark.triangle.fill", Theme.orange, "could not be removed", 1.0)
    }

    function test_failedAndPendingIsPending() {
        setRows({ "~/Library/Caches/org.tavio": UninstallerModel.RowState.Failed, "~/Library/HTTPStorages/org.tavio": UninstallerModel.RowState.Pending })
        compareStatus(UninstallerModel.Category.Cache, "circle", Theme.secondary, "waiting", 0.6)
    }

    function test_failedAndRunningIsRunning() {
        setRows({ "~/Library/Caches/org.tavio": UninstallerModel.RowState.Failed, "~/Library/HTTPStorages/org.tavio": UninstallerModel.RowState.Running })
        compareStatus(UninstallerModel.Category.Cache, "ellipsis.circle", Theme.secondary, "removing", 1.0)
    }

    function test_doneAndPendingIsPending() {
        setRows({ "~/Library/Caches/org.tavio": UninstallerModel.RowState.Done, "~/Library/HTTPStorages/org.tavio": UninstallerModel.RowState.Pending })
        compareStatus(UninstallerModel.Category.Cache, "circle", Theme.secondary, "waiting", 0.6)
    }

    function test_rowsFollowTheModel() {
        setRows({ "/Applications/Tavio.app": UninstallerModel.RowState.Pending })
        compareStatus(UninstallerModel.Category.App, "circle", Theme.secondary, "waiting", 0.6)
        setRows({ "/Applications/Tavio.app": UninstallerModel.RowState.Running })
        compareStatus(UninstallerModel.Category.App, "ellipsis.circle", Theme.secondary, "removing", 1.0)
        setRows({ "/Applications/Tavio.app": UninstallerModel.RowState.Done })
        compareStatus(UninstallerModel.Category.App, "checkmark.circle.fill", Theme.green, "removed", 1.0)
    }

    function test_flipsFromWaitingToRemoving() {
        model.waitingForQuit = true
        verify(!findChild(screen, "progressCard").visible)
        model.waitingForQuit = false
        compare(findChild(screen, "headerTitle").text, "Removing Tavio…")
        verify(findChild(screen, "progressCard").visible)
        verify(!findChild(screen, "cancelButton").enabled)
        keyClick(Qt.Key_Escape)
        compare(model.calls, [])
    }
}
