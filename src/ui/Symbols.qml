pragma Singleton
pragma ComponentBehavior: Bound
import QtQuick

// The one table from the symbol names that the screens use to the bundled
// icons that stand in for them.
QtObject {
    readonly property var sources: ({
        "gearshape": Qt.resolvedUrl("icons/tabler/settings.svg"),
        "doc.on.doc": Qt.resolvedUrl("icons/tabler/copy.svg"),
        "clock.arrow.circlepath": Qt.resolvedUrl("icons/tabler/history.svg"),
        "internaldrive": Qt.resolvedUrl("icons/tabler/server.svg"),
        "list.bullet.rectangle": Qt.resolvedUrl("icons/tabler/list-details.svg"),
        "app": Qt.resolvedUrl("icons/tabler/app-window.svg"),
        "checkmark": Qt.resolvedUrl("icons/tabler/check.svg"),
        "exclamationmark.triangle": Qt.resolvedUrl("icons/tabler/alert-triangle.svg"),
        "exclamationmark.triangle.fill": Qt.resolvedUrl("icons/tabler/alert-triangle-filled.svg"),
        "circle": Qt.resolvedUrl("icons/tabler/circle.svg"),
        "ellipsis.circle": Qt.resolvedUrl("icons/tabler/dots-circle-horizontal.svg"),
        "checkmark.circle.fill": Qt.resolvedUrl("icons/tabler/circle-check-filled.svg")
    })

    readonly property url appIcon: Qt.resolvedUrl("icons/app-icon.svg")

    function source(name: string): url {
        return sources[name] ?? ""
    }
}
