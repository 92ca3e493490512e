import QtQuick
import QtQuick.Controls
import QtTest
import UninstallTavio

TestCase {
    id: testCase
    name: "NothingToRemoveView"
    width: 540
    height: 400
    visible: true
    when: windowShown

    Component {
        id: screenComponent
        NothingToRemoveView {
            width: 492
        }
    }

    SignalSpy {
        id: quitSpy
        signalName: "quitRequested"
    }

    property var screen

    function init() {
        screen = createTemporaryObject(screenComponent, testCase, { userName: "carol" })
        verify(screen)
        quitSpy.clear()
        quitSpy.target = screen
        waitForRendering(screen)
    }

    function test_header() {
        compare(findChild(screen, "headerTitle").text, "Tavio Isn’t Installed")
        compare(findChild(screen, "headerDetail").text,
                "No Tavio app or app data was found for “carol”. Nothing was changed.")
        verify(!findChild(screen, "headerSymbol").visible)
    }

    function test_quitButtonAtTheRight() {
        const quit = findChild(screen, "quitButton")
        compare(quit.text, "Quit")
        verify(quit.prominent)
        compare(Math.round(quit.mapToItem(screen, quit.width, 0).x), 492)
    }

    function test_returnQuits() {
        keyClick(Qt.Key_Return)
        compare(quitSpy.count, 1)
    }

    function test_clickQuits() {
        mouseClick(findChild(screen, "quitButton"))
        compare(quitSpy.count, 1)
    }

    function test_escapeDoesNothing() {
        keyClick(Qt.Key_Escape)
        compare(quitSpy.count, 0)
    }
}
