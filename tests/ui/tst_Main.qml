import QtQuick
import QtQuick.Controls
import QtTest
import UninstallTavio
import UninstallTavio.App

// The window itself: title, fixed width, height following the screen, and
// the close refused while busy.
TestCase {
    id: testCase
    name: "Main"
    when: windowShown

    Inventory {
        id: inventory
    }

    Component {
        id: modelComponent
        FakeModel {}
    }

    Component {
        id: windowComponent
        Main {}
    }

    property var model
    property var window

    // The window goes before the model, as in the application.
    function cleanup() {
        window.destroy()
        model.destroy()
        wait(0)
    }

    function init() {
        model = modelComponent.createObject(testCase)
        model.items = [inventory.present(UninstallerModel.Category.Settings, "~/Library/Preferences/org.tavio.plist")]
        model.removableCount = 1
        window = windowComponent.createObject(testCase, { model: model })
        verify(window)
        tryCompare(window, "visible", true)
    }

    function test_titleAndSize() {
        compare(window.title, "Uninstall Tavio")
        compare(window.width, 540)
        compare(window.minimumWidth, 540)
        compare(window.maximumWidth, 540)
        verify(window.height > 100)
        compare(window.minimumHeight, window.height)
        compare(window.maximumHeight, window.height)
    }

    function test_heightFollowsThePhase() {
        const reviewHeight = window.height
        model.phase = UninstallerModel.PhaseKind.NothingToRemove
        tryVerify(() => window.height < reviewHeight)
        compare(window.minimumHeight, window.height)
        compare(window.maximumHeight, window.height)
        compare(window.width, 540)
    }

    function test_closeRefusedWhileBusy() {
        model.phase = UninstallerModel.PhaseKind.Working
        model.isBusy = true
        window.close()
        verify(window.visible)
        model.isBusy = false
        window.close()
        verify(!window.visible)
    }

    function test_closeAllowedWhileWaitingForQuit() {
        model.phase = UninstallerModel.PhaseKind.Working
        model.waitingForQuit = true
        model.isBusy = false
        window.close()
        verify(!window.visible)
    }
}
