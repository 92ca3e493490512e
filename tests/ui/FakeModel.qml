import QtQml
import UninstallTavio.App

// Stands in for the uninstaller model: the same properties, and methods that
// only record that they were called.
QtObject {
    property int phase: UninstallerModel.PhaseKind.Review
    property string userName: "alice"
    property var items: []
    property int removableCount: 0
    property bool waitingForQuit: false
    property var rowStates: ({})
    property bool isConfirming: false
    property bool isBusy: false
    property int finishedCount: 0
    property var report: ({})

    property var calls: []

    function record(name) { calls = calls.concat([name]) }
    function startUninstall() { record("startUninstall") }
    function refresh() { record("refresh") }
    function cancel() { record("cancel") }
    function revealRemaining() { record("revealRemaining") }
    function copyRemainingPaths() { record("copyRemainingPaths") }
    function quit() { record("quit") }
}
