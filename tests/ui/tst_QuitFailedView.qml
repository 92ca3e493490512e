import QtQuick
import QtQuick.Controls
import QtTest
import UninstallTavio
import UninstallTavio.App

TestCase {
    id: testCase
    name: "QuitFailedView"
    width: 540
    height: 400
    visible: true
    when: windowShown

    Component {
        id: modelComponent
        FakeModel {
            phase: UninstallerModel.PhaseKind.QuitFailed
        }
    }

    Component {
        id: screenComponent
        QuitFailedView {
            width: 492
        }
    }

    property var model
    property var screen

    function init() {
        model = createTemporaryObject(modelComponent, testCase)
        screen = createTemporaryObject(screenComponent, testCase, { model: model })
        verify(screen)
        waitForRendering(screen)
    }

    function test_header() {
        compare(findChild(screen, "headerTitle").text, "Tavio Didn’t Quit")
        compare(findChild(screen, "headerDetail").text,
                "Nothing was deleted. Finish or stop playback, close any Tavio dialog, then try again. If Tavio still doesn’t quit, choose Tavio › Quit Tavio yourself.")
        const symbol = findChild(screen, "headerSymbol")
        verify(symbol.visible)
        compare(symbol.symbol, "exclamationmark.triangle.fill")
        compare(String(symbol.color), String(Theme.orange))
    }

    function test_buttonsInOrder() {
        const quit = findChild(screen, "quitButton")
        const tryAgain = findChild(screen, "tryAgainButton")
        compare(quit.text, "Quit Uninstaller")
        compare(tryAgain.text, "Try Again")
        verify(quit.mapToItem(screen, 0, 0).x < tryAgain.mapToItem(screen, 0, 0).x)
        verify(tryAgain.prominent)
        verify(!quit.prominent)
        verify(tryAgain.enabled && quit.enabled)
    }

    function test_escapeQuits() {
        keyClick(Qt.Key_Escape)
        compare(model.calls, ["quit"])
    }

    function test_returnTriesAgain() {
        keyClick(Qt.Key_Return)
        compare(model.calls, ["startUninstall"])
    }

    function test_clicks() {
        mouseClick(findChild(screen, "quitButton"))
        mouseClick(findChild(screen, "tryAgainButton"))
        compare(model.calls, ["quit", "startUninstall"])
    }
}
