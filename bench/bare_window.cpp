// The yardstick of startup_bench: the smallest Qt Quick program that shows a
// window with one line of text. It links the same Qt Quick libraries as the
// uninstaller and is started the same way, so that what the benchmark
// compares is what the uninstaller does on top of bringing up a window.
#include <QGuiApplication>
#include <QQmlApplicationEngine>

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    QQmlApplicationEngine engine;
    engine.loadData(R"(import QtQuick
Window {
    width: 540
    height: 120
    visible: true
    title: "Bare window"
    Text {
        anchors.centerIn: parent
        text: "Uninstall Tavio"
    }
}
)");
    if (engine.rootObjects().isEmpty()) {
        return 1;
    }
    return application.exec();
}
