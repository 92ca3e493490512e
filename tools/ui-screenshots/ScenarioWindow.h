#pragma once

#include <QObject>
#include <QPalette>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QString>
#include <memory>

#include "Scenarios.h"

// A fake model and the real window that shows it, destroyed window first.
struct ScenarioWindow {
    std::unique_ptr<QObject> model;
    std::unique_ptr<QObject> window;
    ~ScenarioWindow() { window.reset(); }

    QQuickWindow* quickWindow() const { return qobject_cast<QQuickWindow*>(window.get()); }
};

// Loads the window's Main.qml (the module compiled into the program) over a
// fake model with the scenario's values.
// Returns nothing (and says why on stderr) when either fails to load.
std::unique_ptr<ScenarioWindow> showScenario(QQmlEngine& engine, const Scenario& scenario);

// Offscreen and software-rendered, so that the screens render anywhere and
// give the same pixels every time. Call before the application exists.
void useOffscreenRendering();

// Lets the window lay itself out and draw a few frames.
void settle(QQuickWindow* window);

// The two looks every screen is drawn in: the platform's palette as the
// program started with it, and the program's dark palette.
struct NamedPalette {
    QString name;
    QPalette palette;
};
QList<NamedPalette> lightAndDark(const QPalette& platform);
