#include <QtQml/qqmlextensionplugin.h>

#include "app/ApplicationShell.h"

// Both QML modules, the window's and the model's, are linked in statically.
Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)
Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

int main(int argc, char** argv) {
    return app::runApplication(argc, argv);
}
