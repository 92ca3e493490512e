#pragma once

#include <QFile>
#include <QGuiApplication>
#include <QQuickStyle>
#include <QThreadPool>
#include <QtTest>
#include <cstdio>
#include <functional>
#include <set>

#include "DescriptorCheck.h"

// The entry point of a Qt Test program of the app: a GUI application on the
// platform CTest names (offscreen), the window's style, and the same promise
// as the GoogleTest main: a run that leaves a descriptor open fails.
// `warmUp` opens what Qt keeps open for the life of the process (a bus
// connection, say) before the descriptors are counted.
namespace apptest {

template <typename Tests>
int runTests(int argc, char** argv, const std::function<void()>& warmUp = {}) {
    QGuiApplication application(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    if (warmUp) {
        warmUp();
    }
    const std::set<int> before = testsupport::openDescriptors();
    int failures = 0;
    {
        Tests tests;
        failures = QTest::qExec(&tests, argc, argv);
    }
    QCoreApplication::processEvents();
    // Qt's pooled threads (the QML engine loads with them) each hold an
    // event descriptor while they idle; they are Qt's, so they go first.
    (void)QThreadPool::globalInstance()->waitForDone();
    for (const int fd : testsupport::openDescriptors()) {
        if (!before.contains(fd)) {
            const QString target = QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(fd));
            std::fprintf(stderr, "FAIL: descriptor %d (%s) was left open\n", fd,
                         qPrintable(target));
            ++failures;
        }
    }
    return failures;
}

}  // namespace apptest
