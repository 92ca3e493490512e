#include "app/AccessibleControls.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QQuickItem>
#include <QQuickWindow>

namespace app {
namespace {

// Qt Quick's `Accessible` attached object of an item, if QML made one. Its
// class is not public, so its properties and signals are reached by name.
QObject* accessibleAttached(const QObject* item) {
    for (QObject* child : item->children()) {
        if (child->inherits("QQuickAccessibleAttached")) {
            return child;
        }
    }
    return nullptr;
}

QVariant attachedProperty(const QObject* item, const char* name) {
    const QObject* attached = accessibleAttached(item);
    return attached ? attached->property(name) : QVariant();
}

// Tells the accessibility bridge about the changes that Qt Quick keeps to
// itself: a control's enabled state and a progress bar's value. Lives as a
// child of the control, so it goes with it.
class ChangeNotifier : public QObject {
    Q_OBJECT

  public:
    explicit ChangeNotifier(QQuickItem* item) : QObject(item), item_(item) {
        connect(item, &QQuickItem::enabledChanged, this, &ChangeNotifier::enabledChanged);
        if (item->metaObject()->indexOfSignal("valueChanged()") >= 0) {
            connect(item, SIGNAL(valueChanged()), this, SLOT(valueChanged()));
        }
    }

  private slots:
    void enabledChanged() {
        QAccessible::State changed;
        changed.disabled = true;
        QAccessibleStateChangeEvent event(item_, changed);
        QAccessible::updateAccessibility(&event);
    }

    void valueChanged() {
        QAccessibleValueChangeEvent event(item_, item_->property("value"));
        QAccessible::updateAccessibility(&event);
    }

  private:
    QQuickItem* item_;
};

// What the button and the progress bar share: a leaf of the tree, placed
// where Qt Quick's own interfaces expect it.
class AccessibleLeaf : public QAccessibleObject {
  public:
    explicit AccessibleLeaf(QQuickItem* item) : QAccessibleObject(item) {
        new ChangeNotifier(item);
    }

    QQuickItem* item() const { return static_cast<QQuickItem*>(object()); }

    QWindow* window() const override { return item()->window(); }

    // The nearest ancestor whose interface lists this control among its
    // children (items that are not accessible themselves are passed over),
    // or the window at the top.
    QAccessibleInterface* parent() const override {
        QQuickWindow* const window = item()->window();
        for (QQuickItem* up = item()->parentItem(); up; up = up->parentItem()) {
            if (window && up == window->contentItem()) {
                return QAccessible::queryAccessibleInterface(window);
            }
            QAccessibleInterface* candidate = QAccessible::queryAccessibleInterface(up);
            if (candidate && candidate->indexOfChild(this) >= 0) {
                return candidate;
            }
        }
        return nullptr;
    }

    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }

    QRect rect() const override {
        const QQuickItem* const control = item();
        if (!control->window() || !control->isVisible()) {
            return {};
        }
        const QPoint topLeft = control->mapToGlobal(QPointF(0, 0)).toPoint();
        return {topLeft, QSize(qRound(control->width()), qRound(control->height()))};
    }

    QString text(QAccessible::Text type) const override {
        switch (type) {
            case QAccessible::Name: {
                const QVariant name = attachedProperty(item(), "name");
                return name.isNull() ? item()->property("text").toString() : name.toString();
            }
            case QAccessible::Description:
                return attachedProperty(item(), "description").toString();
            default:
                return {};
        }
    }

    QAccessible::State state() const override {
        const QQuickItem* const control = item();
        QAccessible::State state;
        state.invisible = !control->window() || !control->window()->isVisible() ||
                          !control->isVisible() || qFuzzyIsNull(control->opacity());
        state.focusable = control->activeFocusOnTab();
        state.focused = control->hasActiveFocus();
        // Effective: a control inside a disabled item is disabled too.
        state.disabled = !control->isEnabled();
        return state;
    }
};

class AccessibleButton : public AccessibleLeaf, public QAccessibleActionInterface {
  public:
    using AccessibleLeaf::AccessibleLeaf;

    QAccessible::Role role() const override { return QAccessible::Button; }

    QAccessible::State state() const override {
        QAccessible::State state = AccessibleLeaf::state();
        state.defaultButton = attachedProperty(item(), "defaultButton").toBool();
        state.pressed = item()->property("down").toBool();
        return state;
    }

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ActionInterface) {
            return static_cast<QAccessibleActionInterface*>(this);
        }
        return AccessibleLeaf::interface_cast(type);
    }

    // A disabled button has nothing to offer, as with desktop widgets.
    QStringList actionNames() const override {
        if (!item()->isEnabled()) {
            return {};
        }
        return {pressAction()};
    }

    // The press goes to the QML handler (`Accessible.onPressAction`), which
    // decides what a press means for this button.
    void doAction(const QString& name) override {
        if (name != pressAction() || !item()->isEnabled()) {
            return;
        }
        if (QObject* attached = accessibleAttached(item())) {
            QMetaObject::invokeMethod(attached, "pressAction");
        }
    }

    QStringList keyBindingsForAction(const QString&) const override { return {}; }
};

class AccessibleProgressBar : public AccessibleLeaf, public QAccessibleValueInterface {
  public:
    using AccessibleLeaf::AccessibleLeaf;

    QAccessible::Role role() const override { return QAccessible::ProgressBar; }

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface) {
            return static_cast<QAccessibleValueInterface*>(this);
        }
        return AccessibleLeaf::interface_cast(type);
    }

    QVariant currentValue() const override { return item()->property("value"); }
    // Progress is the program's to report, not the reader's to set.
    void setCurrentValue(const QVariant&) override {}
    QVariant maximumValue() const override { return item()->property("to"); }
    QVariant minimumValue() const override { return item()->property("from"); }
    QVariant minimumStepSize() const override { return 0; }
};

// Consulted for each class of an object from the most derived one up, before
// Qt Quick's own factory, which answers only for the class QQuickItem.
QAccessibleInterface* controlFactory(const QString& className, QObject* object) {
    auto* item = qobject_cast<QQuickItem*>(object);
    if (!item) {
        return nullptr;
    }
    if (className == QLatin1String("QQuickButton")) {
        return new AccessibleButton(item);
    }
    if (className == QLatin1String("QQuickProgressBar")) {
        return new AccessibleProgressBar(item);
    }
    return nullptr;
}

}  // namespace

void installAccessibleControls() {
    QAccessible::installFactory(controlFactory);
}

}  // namespace app

#include "AccessibleControls.moc"
