#pragma once

namespace app {

// Where the window's QML lives: the Main.qml of the UninstallTavio module,
// compiled into the program.
inline constexpr char kMainQmlUrl[] = "qrc:/qt/qml/UninstallTavio/Main.qml";

// The name of the program's desktop entry (without ".desktop"), which is
// also the name of its icon in the icon theme.
inline constexpr char kDesktopEntryName[] = "io.tavio.Tavio.Uninstaller";
// The program's icon as compiled into it, for when the theme has none.
inline constexpr char kBundledIconPath[] = ":/qt/qml/UninstallTavio/icons/app-icon.svg";

// The whole life of the program, from start-up to the temporary-copy
// clean-up just before exit: context, engine, the model with its first
// inventory, the one window, the termination guard. Returns the exit code.
// Takes no arguments of its own; Qt's own are honoured.
int runApplication(int& argc, char** argv);

}  // namespace app
