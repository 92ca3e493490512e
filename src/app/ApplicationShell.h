#pragma once

namespace app {

// Where the window's QML lives: the Main.qml of the UninstallTavio module,
// compiled into the program.
inline constexpr char kMainQmlUrl[] = "qrc:/qt/qml/UninstallTavio/Main.qml";

// The whole life of the program, from start-up to the temporary-copy
// clean-up just before exit: context, engine, the model with its first
// inventory, the one window, the termination guard. Returns the exit code.
// Takes no arguments of its own; Qt's own are honoured.
int runApplication(int& argc, char** argv);

}  // namespace app
