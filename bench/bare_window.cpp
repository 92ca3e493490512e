// The yardstick of startup_bench: the smallest Qt Quick program that shows a
// window with one line of text. It links the same Qt Quick libraries as the
// uninstaller and is started the same way, so that what the benchmark
// compares is what the uninstaller does on top of bringing up a window.
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlApplicationEngine>
#include <ctime>

// The same start-up mark as the uninstaller's first, so the benchmark can
// tell what both pay before main() (the sandbox, loading the libraries)
// from what comes after.
Q_LOGGING_CATEGORY(lcStartup, "uninstall.startup", QtWarningMsg)

int main(int argc, char** argv) {
    timespec now{};
    (void)::clock_gettime(CLOCK_MONOTONIC, &now);
    qCDebug(lcStartup, "startup mark: main %lld",
            static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
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
