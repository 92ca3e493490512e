import QtQml
import UninstallTavio.App

// Builds inventory items the way the model publishes them.
QtObject {
    function item(category, state, displayPath, reason) {
        return {
            id: "tree:" + displayPath,
            category: category,
            path: displayPath.replace(/^~/, "/home/alice"),
            displayPath: displayPath,
            state: state,
            reason: reason ?? ""
        }
    }

    function present(category, displayPath) {
        return item(category, UninstallerModel.ItemState.Present, displayPath)
    }
    function absent(category, displayPath) {
        return item(category, UninstallerModel.ItemState.Absent, displayPath)
    }
    function skipped(category, displayPath, reason) {
        return item(category, UninstallerModel.ItemState.Skipped, displayPath, reason)
    }
}
