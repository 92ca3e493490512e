#pragma once

#include <QList>
#include <QString>
#include <QVariantMap>

// One picture: its file name and the fake model's property values.
struct Scenario {
    QString name;
    QVariantMap model;
};

// Every screen the user can meet, in the order of a run.
QList<Scenario> scenarios();
