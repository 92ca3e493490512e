import QtQuick
import QtQuick.Controls
import QtTest
import UninstallTavio
import UninstallTavio.App

// The router, its column and the confirmation alert.
TestCase {
    id: testCase
    name: "UninstallerView"
    width: 540
    height: 900
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
        id: viewComponent
        UninstallerView {}
    }

    property var model
    property var view

    // The window goes before the model, as in the application.
    function cleanup() {
        view.destroy()
        model.destroy()
        wait(0)
    }

    function init() {
        model = modelComponent.createObject(testCase)
        model.items = [inventory.present(UninstallerModel.Category.Settings, "~/Library/Preferences/org.tavio.plist")]
        model.removableCount = 1
        view = viewComponent.createObject(testCase, { model: model })
        verify(view)
        waitForRendering(view)
    }

    function alert() {
        return findChild(testCase, "confirmationAlert")
    }

    function test_routesEveryPhase_data() {
        return [
            { tag: "review", phase: UninstallerModel.PhaseKind.Review, screen: "reviewView" },
            { tag: "working", phase: UninstallerModel.PhaseKind.Working, screen: "workingView" },
            { tag: "quitFailed", phase: UninstallerModel.PhaseKind.QuitFailed, screen: "quitFailedView" },
            { tag: "finished", phase: UninstallerModel.PhaseKind.Finished, screen: "finishedView" },
            { tag: "nothingToRemove", phase: UninstallerModel.PhaseKind.NothingToRemove, screen: "nothingToRemoveView" }
        ]
    }

    function test_routesEveryPhase(data) {
        model.report = { outcome: UninstallerModel.Outcome.Completed, alreadyAbsentCount: 0, remaining: [], results: [] }
        model.phase = data.phase
        compare(view.screen.objectName, data.screen)
        for (const other of ["reviewView", "workingView", "quitFailedView", "finishedView", "nothingToRemoveView"]) {
            if (other !== data.screen)
                tryVerify(() => findChild(view, other) === null, 1000, other)
        }
    }

    function test_finishedGetsTheModelsReport() {
        const report = { outcome: UninstallerModel.Outcome.Incomplete, alreadyAbsentCount: 0, results: [],
                         remaining: [{ path: "/a/b", reason: "Permission denied" }] }
        model.report = report
        model.phase = UninstallerModel.PhaseKind.Finished
        compare(view.screen.report.remaining[0].path, "/a/b")
        compare(findChild(view.screen, "remainingRows").count, 1)
    }

    function test_nothingToRemoveGetsTheUserNameAndQuitsThroughTheModel() {
        model.userName = "erin"
        model.phase = UninstallerModel.PhaseKind.NothingToRemove
        compare(view.screen.userName, "erin")
        mouseClick(findChild(view.screen, "quitButton"))
        compare(model.calls, ["quit"])
    }

    function test_columnPaddingAndWidth() {
        compare(view.implicitWidth, 540)
        compare(view.width, 540)
        const screen = view.screen
        const origin = screen.mapToItem(view, 0, 0)
        compare(origin.x, 24)
        compare(origin.y, 8)
        compare(screen.width, 492)
        compare(screen.spacing, 14)
        compare(view.implicitHeight, 8 + screen.implicitHeight + 20)
    }

    function test_heightFollowsTheScreen() {
        const reviewHeight = view.implicitHeight
        model.phase = UninstallerModel.PhaseKind.NothingToRemove
        verify(view.implicitHeight < reviewHeight)
        compare(view.implicitHeight, 8 + view.screen.implicitHeight + 20)
    }

    function test_longTextsKeepTheWidth() {
        model.userName = "a-very-long-name-".repeat(20)
        model.items = [inventory.present(UninstallerModel.Category.Cache, "~/Library/Caches/" + "long/folder/name/".repeat(20))]
        waitForRendering(view)
        compare(view.implicitWidth, 540)
        compare(view.screen.width, 492)
        verify(findChild(view.screen, "headerDetail").lineCount > 2)
    }

    function test_alertOpensWhileConfirming() {
        verify(alert() === null, "the alert is made before it is needed")
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        compare(alert().title, "Permanently remove Tavio and its data?")
        compare(findChild(testCase, "alertTitle").text, "Permanently remove Tavio and its data?")
        compare(findChild(testCase, "alertMessage").text,
                "This can’t be undone. The app, your settings, playback history and positions, recent torrent copies and cache are deleted. If Tavio is open, it is asked to quit first.")
        const cancel = findChild(testCase, "alertCancelButton")
        const uninstall = findChild(testCase, "alertUninstallButton")
        compare(cancel.text, "Cancel")
        compare(uninstall.text, "Uninstall")
        verify(cancel.mapToItem(null, 0, 0).x < uninstall.mapToItem(null, 0, 0).x)
        verify(uninstall.destructive)
    }

    function test_alertIsKeptOnceMade() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        const made = alert()
        model.isConfirming = false
        tryCompare(made, "visible", false)
        compare(alert(), made)
        model.isConfirming = true
        tryCompare(made, "opened", true)
    }

    function test_viewOfAConfirmingModelOpensTheAlert() {
        view.destroy()
        model.isConfirming = true
        view = viewComponent.createObject(testCase, { model: model })
        tryCompare(alert(), "opened", true)
    }

    function test_reviewUninstallOpensTheAlert() {
        keyClick(Qt.Key_Return)
        verify(model.isConfirming)
        tryCompare(alert(), "opened", true)
        compare(model.calls, [])
    }

    function test_returnInTheAlertDismissesWithoutStarting() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        keyClick(Qt.Key_Return)
        verify(!model.isConfirming)
        tryCompare(alert(), "visible", false)
        compare(model.calls, [])
    }

    function test_escapeInTheAlertDismissesWithoutStarting() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        keyClick(Qt.Key_Escape)
        verify(!model.isConfirming)
        tryCompare(alert(), "visible", false)
        compare(model.calls, [])
    }

    function test_cancelInTheAlertDismisses() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        mouseClick(findChild(testCase, "alertCancelButton"))
        verify(!model.isConfirming)
        compare(model.calls, [])
    }

    function test_uninstallInTheAlertStarts() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        mouseClick(findChild(testCase, "alertUninstallButton"))
        compare(model.calls, ["startUninstall"])
        verify(!model.isConfirming)
        tryCompare(alert(), "visible", false)
    }

    function test_uninstallInTheAlertAnswersThePressAction() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        findChild(testCase, "alertUninstallButton").Accessible.pressAction()
        compare(model.calls, ["startUninstall"])
    }

    function test_screenBehindTheAlertTakesNoInput() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        const cancel = findChild(view.screen, "cancelButton")
        const uninstall = findChild(view.screen, "uninstallButton")
        verify(!cancel.enabled)
        verify(!uninstall.enabled)
        cancel.Accessible.pressAction()
        uninstall.Accessible.pressAction()
        compare(model.calls, [])
        verify(model.isConfirming)
    }

    function test_screenKeysComeBackAfterTheAlert() {
        model.isConfirming = true
        tryCompare(alert(), "opened", true)
        keyClick(Qt.Key_Escape)
        tryCompare(alert(), "visible", false)
        verify(findChild(view.screen, "cancelButton").enabled)
        keyClick(Qt.Key_Escape)
        compare(model.calls, ["quit"])
    }

    function test_closeButtonFollowsBusy() {
        const window = view.Window.window
        verify(window.flags & Qt.WindowCloseButtonHint || !(window.flags & Qt.CustomizeWindowHint))
        model.phase = UninstallerModel.PhaseKind.Working
        model.isBusy = true
        tryVerify(() => (window.flags & Qt.CustomizeWindowHint) && !(window.flags & Qt.WindowCloseButtonHint))
        model.isBusy = false
        tryVerify(() => !(window.flags & Qt.CustomizeWindowHint))
    }
}
