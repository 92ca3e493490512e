#pragma once

#include <QtQml/qqmlregistration.h>

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

// What the review, working and end screens show for each row, worked out from
// the model's plain data. It lives in C++ so that the screens stay declarative
// and the rules can be read (and tested) in one place.
//
// Items are maps with the keys id, category, path, displayPath, state and
// reason, as the model publishes them; row states are a map from item id to
// "pending", "running", "done" or "failed".
class CategoryRows : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

    // Every category, in display order.
    Q_PROPERTY(QStringList categories READ categories CONSTANT)

  public:
    explicit CategoryRows(QObject* parent = nullptr);

    static QStringList categories();

    // The display title of a category ("Settings", "Tavio app", …).
    Q_INVOKABLE static QString title(const QString& category);

    // The review row of one category: symbol, title, paths, trailing, reason and
    // warning. A category where something is present lists only what is not
    // absent; one where nothing is present lists every location looked at, so
    // the user sees where the search went.
    Q_INVOKABLE static QVariantMap reviewRow(const QVariantList& items, const QString& category);

    // The progress row of one category: title, status ("pending", "running",
    // "done" or "failed"), symbol and the status word a screen reader speaks.
    // A failure is shown only once nothing else in the category is queued or
    // under way.
    Q_INVOKABLE static QVariantMap workingRow(const QVariantList& items,
                                              const QVariantMap& rowStates,
                                              const QString& category);

    // The row of one leftover on the incomplete end screen: titled with the last
    // component of its path, always a warning.
    Q_INVOKABLE static QVariantMap remainingRow(const QString& path, const QString& reason);

    // The last component of a file path: "/a/b/" gives "b", "/" gives "/".
    Q_INVOKABLE static QString lastPathComponent(const QString& path);
};
