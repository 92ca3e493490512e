// Every screen at the scale, font size and language this process runs with
// (the test is registered at QT_SCALE_FACTOR 1.5 and 2, and with the
// desktop's font at 1.5 times its size, in the English a Linux desktop
// speaks and in German, whose words run longest): no text is cut off or overlaps another,
// everything lies inside the window, and each symbol is drawn from its vector source at the
// window's device pixels rather than scaled up from a small bitmap.
#include <QtQml/qqmlextensionplugin.h>

#include <QFont>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QSGTexture>
#include <QSGTextureProvider>
#include <QTranslator>
#include <QtTest>
#include <cstdio>
#include <memory>

#include "RenderedScreen.h"
#include "ScenarioWindow.h"
#include "Scenarios.h"
#include "app/Translations.h"

Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)
Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

class LayoutTests : public QObject {
    Q_OBJECT

  private slots:
    void screen_data();
    void screen();
};

void LayoutTests::screen_data() {
    QTest::addColumn<int>("index");
    const QList<Scenario> all = scenarios();
    for (int i = 0; i < all.size(); ++i) {
        QTest::newRow(qPrintable(all.at(i).name)) << i;
    }
}

namespace {

QString describe(const rendered::Mark& mark) {
    const QRectF& r = mark.scene;
    return QStringLiteral("“%1” at %2,%3 %4×%5")
        .arg(mark.what.left(40))
        .arg(r.x())
        .arg(r.y())
        .arg(r.width())
        .arg(r.height());
}

// The symbol's image was made for the window's device pixels: the texture
// behind it has sourceSize × device pixel ratio pixels.
QString symbolProblem(const rendered::Mark& mark, double ratio) {
    QQuickItem* item = mark.item;
    const QSize logical = item->property("sourceSize").toSize();
    QSGTextureProvider* provider = item->textureProvider();
    QSGTexture* texture = provider ? provider->texture() : nullptr;
    if (!texture) {
        return QStringLiteral("%1 has no image").arg(describe(mark));
    }
    const QSize expected = (QSizeF(logical) * ratio).toSize();
    const QSize actual = texture->textureSize();
    if (qAbs(actual.width() - expected.width()) > 1 ||
        qAbs(actual.height() - expected.height()) > 1) {
        return QStringLiteral("%1 is drawn from a %2×%3 image, wants %4×%5")
            .arg(describe(mark))
            .arg(actual.width())
            .arg(actual.height())
            .arg(expected.width())
            .arg(expected.height());
    }
    return {};
}

// The screen the window shows: the item that the window's content (the view
// with its side margins) publishes as `screen`.
QQuickItem* shownScreen(QQuickItem* item) {
    if (item->metaObject()->indexOfProperty("sidePadding") >= 0)
        return item->property("screen").value<QQuickItem*>();
    const QList<QQuickItem*> children = item->childItems();
    for (QQuickItem* child : children) {
        if (QQuickItem* screen = shownScreen(child))
            return screen;
    }
    return nullptr;
}

bool isWithin(const QQuickItem* item, const QQuickItem* ancestor) {
    for (; item != nullptr; item = item->parentItem()) {
        if (item == ancestor)
            return true;
    }
    return false;
}

}  // namespace

void LayoutTests::screen() {
    QFETCH(int, index);
    QQmlEngine engine;
    const std::unique_ptr<ScenarioWindow> shown = showScenario(engine, scenarios().at(index));
    QVERIFY(shown);
    QQuickWindow* window = shown->quickWindow();
    settle(window);
    QImage image = window->grabWindow();
    const double ratio = window->effectiveDevicePixelRatio();
    // The window is drawn at its device pixels (the grab does not always say so).
    QCOMPARE(image.width(), qRound(window->width() * ratio));
    image.setDevicePixelRatio(ratio);

    const QRectF inside(0, 0, window->width(), window->height());
    // What belongs to the screen keeps within its column, clear of the
    // window's side margins, however long the words of the language.
    const QQuickItem* screen = shownScreen(window->contentItem());
    QVERIFY(screen);
    const QRectF column = screen->mapRectToScene(QRectF(0, 0, screen->width(), screen->height()));
    const QList<rendered::Mark> marks = rendered::marks(window, image);
    QVERIFY(marks.size() >= 3);
    QStringList problems;
    for (qsizetype i = 0; i < marks.size(); ++i) {
        const rendered::Mark& mark = marks.at(i);
        if (!inside.contains(mark.scene)) {
            problems.append(describe(mark) + QStringLiteral(" is outside the window"));
        }
        if (isWithin(mark.item, screen) && (mark.scene.left() < column.left() - 0.5 ||
                                            mark.scene.right() > column.right() + 0.5)) {
            problems.append(describe(mark) + QStringLiteral(" reaches into the side margin"));
        }
        if (mark.item->property("truncated").toBool()) {
            problems.append(describe(mark) + QStringLiteral(" is cut off"));
        }
        if (mark.kind == rendered::Kind::symbol) {
            const QString problem = symbolProblem(mark, ratio);
            if (!problem.isEmpty())
                problems.append(problem);
            continue;
        }
        for (qsizetype j = i + 1; j < marks.size(); ++j) {
            const rendered::Mark& other = marks.at(j);
            // The open alert lies over the screen behind it, on purpose.
            const bool sameLayer = mark.inactive == other.inactive;
            if (sameLayer && other.kind != rendered::Kind::symbol &&
                mark.scene.intersects(other.scene)) {
                problems.append(describe(mark) + QStringLiteral(" overlaps ") + describe(other));
            }
        }
    }
    QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
}

int main(int argc, char** argv) {
    useOffscreenRendering();
    QGuiApplication application(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    // The desktop's font, as large as UT_FONT_SCALE says.
    bool ok = false;
    const double fontScale = qEnvironmentVariable("UT_FONT_SCALE").toDouble(&ok);
    if (ok && fontScale > 0) {
        QFont font = QGuiApplication::font();
        font.setPointSizeF(font.pointSizeF() * fontScale);
        QGuiApplication::setFont(font);
    }
    // The words the program shows for the user's language (LANGUAGE and LANG).
    QTranslator translator;
    if (!app::installTranslations(translator)) {
        std::fprintf(stderr, "no catalogue for this language\n");
        return 1;
    }
    LayoutTests tests;
    return QTest::qExec(&tests, argc, argv);
}

#include "LayoutTests.moc"
