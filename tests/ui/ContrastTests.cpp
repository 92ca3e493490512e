// Every screen, drawn in the light and in the dark palette: each text reaches
// 4.5:1 against what is drawn behind it, each symbol and large title 3:1.
// The ink is the colour the item draws with (at its effective opacity); the
// background is read from the rendered pixels around it. Inactive parts (a
// disabled button, the screen behind an open alert) are exempt, as the
// contrast guidelines exempt inactive controls.
#include <QtQml/qqmlextensionplugin.h>

#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QtTest>
#include <algorithm>
#include <memory>

#include "RenderedScreen.h"
#include "ScenarioWindow.h"
#include "Scenarios.h"
#include "app/ColorContrast.h"
#include "app/ColorScheme.h"

Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)
Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

class ContrastTests : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase();
    void lightPalette_data() { scenarioRows(); }
    void lightPalette();
    void darkPalette_data() { scenarioRows(); }
    void darkPalette();

  private:
    static void scenarioRows();
    void measure(const QPalette& palette, bool expectDark);

    QPalette platform_;
};

void ContrastTests::initTestCase() {
    platform_ = QGuiApplication::palette();
    QVERIFY2(!colorscheme::isDark(platform_), "the platform palette here is expected to be light");
}

void ContrastTests::scenarioRows() {
    QTest::addColumn<int>("index");
    const QList<Scenario> all = scenarios();
    for (int i = 0; i < all.size(); ++i) {
        QTest::newRow(qPrintable(all.at(i).name)) << i;
    }
}

void ContrastTests::lightPalette() {
    measure(platform_, false);
}

void ContrastTests::darkPalette() {
    measure(colorscheme::darkPalette(), true);
}

void ContrastTests::measure(const QPalette& palette, bool expectDark) {
    QFETCH(int, index);
    QGuiApplication::setPalette(palette);
    QQmlEngine engine;
    const std::unique_ptr<ScenarioWindow> shown = showScenario(engine, scenarios().at(index));
    QVERIFY(shown);
    QQuickWindow* window = shown->quickWindow();
    settle(window);
    const QImage image = window->grabWindow();
    QVERIFY(!image.isNull());

    // The whole window is drawn for the palette: its surface is dark
    // exactly when the palette is.
    const QColor corner = image.pixelColor(2, 2);
    QCOMPARE(corner.lightnessF() < 0.5F, expectDark);

    const QList<rendered::Mark> marks = rendered::marks(window, image);
    int measured = 0;
    double lowestText = 21;
    double lowestSymbol = 21;
    QStringList failures;
    for (const rendered::Mark& mark : marks) {
        if (mark.inactive) {
            continue;
        }
        ++measured;
        const double ratio = ColorContrast::ratio(mark.ink, mark.background);
        double& lowest = mark.kind == rendered::Kind::text ? lowestText : lowestSymbol;
        lowest = std::min(lowest, ratio);
        if (ratio < rendered::required(mark.kind)) {
            failures.append(QStringLiteral("“%1”: %2 on %3 is %4:1, needs %5:1")
                                .arg(mark.what.left(40), mark.ink.name(), mark.background.name())
                                .arg(ratio, 0, 'f', 2)
                                .arg(rendered::required(mark.kind)));
        }
    }
    qInfo("%d texts and symbols; lowest contrast: text %.2f:1, symbols and large text %.2f:1",
          measured, lowestText, lowestSymbol);
    QVERIFY2(measured >= 3, "too few texts and symbols found to measure");
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join(QLatin1Char('\n'))));
}

int main(int argc, char** argv) {
    useOffscreenRendering();
    QGuiApplication application(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    ContrastTests tests;
    return QTest::qExec(&tests, argc, argv);
}

#include "ContrastTests.moc"
