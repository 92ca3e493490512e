#pragma once

#include <QtQml/qqmlregistration.h>

#include <QFont>
#include <QObject>

// The platform's fonts that QML cannot name by itself: paths are shown in the
// system's fixed-pitch font, whatever family that is on this desktop.
class SystemFonts : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

    Q_PROPERTY(QFont fixed READ fixed CONSTANT)

  public:
    explicit SystemFonts(QObject* parent = nullptr);

    static QFont fixed();
};
