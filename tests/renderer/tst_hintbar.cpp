#include "Canvas.h"
#include "Defaults.h"
#include "DrawingStore.h"
#include "PaletteColor.h"
#include "Renderer.h"
#include "TestSettings.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QTranslator>
#include <QtTest>

// The hint bar drawn into real images, in view coordinates (y down), at
// device pixel ratios 1 and 2, and its "hudVisible" switch in a real settings file.
class HintBarTest : public QObject {
    Q_OBJECT

    // As written for users: five spaces open it and stand between groups.
    static QString expectedHints() {
        return QString::fromUtf8(
            "     P pen  A arrow  E ellipse  R rectangle  H highlighter  T text"
            "     1–6 color  [ ] size     ⌘Z undo  C clear all  Tab hide hint"
            "  Esc done");
    }
    static QFontMetricsF hintMetrics() {
        QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        font.setPixelSize(12);
        font.setWeight(QFont::Medium);
        return QFontMetricsF(font);
    }
    // The capsule's colour: white level 0.1 at 0.82, premultiplied.
    static bool isBarColour(QRgb p) {
        return std::abs(qAlpha(p) - 209) <= 2 && std::abs(qRed(p) - 21) <= 2 &&
               qRed(p) == qGreen(p) && qGreen(p) == qBlue(p);
    }
    static bool near(qreal actual, qreal expected, qreal tolerance) {
        return std::abs(actual - expected) <= tolerance;
    }
    static Canvas hud(const QRectF& bounds, const DrawingStore& store, qreal dpr) {
        Canvas canvas(bounds.size() + QSizeF(bounds.left(), bounds.top()), dpr);
        canvas.paint([&](QPainter& painter) { Renderer::drawHUD(painter, bounds, store); });
        return canvas;
    }

    // Translates two strings of the renderer's context, as a translation file would.
    class LongNames : public QTranslator {
    public:
        QString translate(const char* context, const char* source, const char* = nullptr,
                          int = -1) const override {
            if (QByteArray(context) != "Renderer")
                return {};
            if (QByteArray(source) == "Red")
                return QStringLiteral("Rouge vif très long");
            if (QByteArray(source) == "Pen")
                return QStringLiteral("Stylo");
            return {};
        }
        bool isEmpty() const override { return false; }
    };

private Q_SLOTS:
    void lineIsTitleColourAndHints() {
        DrawingStore store;
        QCOMPARE(expectedHints().toUtf8().size(), 144);
        QCOMPARE(Renderer::hudHints(), expectedHints());
        QCOMPARE(Renderer::hudLine(store), QString::fromUtf8("Pen · Red") + expectedHints());
        store.tool = Tool::rect;
        store.colorIndex = 2;
        QCOMPARE(Renderer::hudLine(store),
                 QString::fromUtf8("Rectangle · Green") + expectedHints());
        const QStringList titles = {QStringLiteral("Pen"),         QStringLiteral("Arrow"),
                                    QStringLiteral("Ellipse"),     QStringLiteral("Rectangle"),
                                    QStringLiteral("Highlighter"), QStringLiteral("Text")};
        for (Tool tool : allTools) {
            store.tool = tool;
            QVERIFY(
                Renderer::hudLine(store).startsWith(titles[int(tool)] + QString::fromUtf8(" · ")));
        }
    }

    void barCapsuleSwatchAndText_data() {
        QTest::addColumn<qreal>("dpr");
        QTest::addColumn<QRectF>("bounds");
        QTest::addColumn<int>("colorIndex");
        QTest::newRow("1x") << 1.0 << QRectF(0, 0, 1280, 400) << 0;
        QTest::newRow("2x") << 2.0 << QRectF(0, 0, 1280, 400) << 3;
        QTest::newRow("1x, offset bounds") << 1.0 << QRectF(100, 40, 1100, 300) << 1;
    }
    void barCapsuleSwatchAndText() {
        QFETCH(qreal, dpr);
        QFETCH(QRectF, bounds);
        QFETCH(int, colorIndex);
        DrawingStore store;
        store.tool = Tool::highlighter;
        store.colorIndex = colorIndex;
        const Canvas canvas = hud(bounds, store, dpr);

        // Text width + 52 wide, text height + 14 high, 70 below the top, centred.
        const QFontMetricsF metrics = hintMetrics();
        const qreal width = metrics.horizontalAdvance(Renderer::hudLine(store)) + 52;
        const qreal height = metrics.height() + 14;
        const QRectF expected(bounds.center().x() - width / 2, bounds.top() + 70, width, height);
        const QRectF bar = Renderer::hudRect(bounds, store);
        QVERIFY(near(bar.left(), expected.left(), 0.01) && near(bar.top(), expected.top(), 0.01) &&
                near(bar.width(), width, 0.01) && near(bar.height(), height, 0.01));
        const QRectF ink = canvas.inkBox();
        QVERIFY2(near(ink.left(), expected.left(), 1) && near(ink.right(), expected.right(), 1) &&
                     near(ink.top(), expected.top(), 1) && near(ink.bottom(), expected.bottom(), 1),
                 describe(ink));

        // A capsule: rounded ends, the bar colour inside, its corners empty.
        const qreal midY = expected.center().y();
        QVERIFY(isBarColour(canvas.at({expected.left() + 6, midY})));
        QVERIFY(isBarColour(canvas.at({expected.right() - 6, midY})));
        QVERIFY(isBarColour(canvas.at({expected.center().x(), expected.top() + 2})));
        QCOMPARE(canvas.alphaAt(expected.topLeft() + QPointF(1, 1)), 0);
        QCOMPARE(canvas.alphaAt(expected.bottomRight() - QPointF(1.5, 1.5)), 0);

        // The swatch: a 10 across dot of the colour as it is, 14 in from the left.
        const QColor colour = paletteColor(colorIndex).color;
        // Pixels at least half covered by it: nearer its colour than the bar's.
        const auto distance = [](QRgb p, QRgb q) {
            return std::hypot(qRed(p) - qRed(q), qGreen(p) - qGreen(q), qBlue(p) - qBlue(q)) +
                   std::abs(qAlpha(p) - qAlpha(q));
        };
        const auto isSwatch = [&](QRgb p) {
            return distance(p, colour.rgba()) < distance(p, qRgba(21, 21, 21, 209));
        };
        const QRectF swatch =
            canvas.inkBox(isSwatch, QRectF(expected.topLeft(), QSizeF(30, expected.height())));
        QVERIFY2(near(swatch.left(), expected.left() + 14, 1) &&
                     near(swatch.right(), expected.left() + 24, 1) &&
                     near(swatch.center().y(), midY, 0.75) && near(swatch.height(), 10, 1.5),
                 describe(swatch));
        QVERIFY(isBarColour(canvas.at({expected.left() + 19, midY - 6.5})));

        // White text in its padding: 34 on the left, 18 on the right, 7 above and below.
        const QRectF text = canvas.inkBox([](QRgb p) { return qRed(p) > 200 && qBlue(p) > 200; });
        QVERIFY(text.left() >= expected.left() + 34 && text.left() <= expected.left() + 37);
        QVERIFY(text.right() <= expected.right() - 18 + 1 && text.right() >= expected.right() - 24);
        QVERIFY(text.top() >= expected.top() + 7 && text.bottom() <= expected.bottom() - 7 + 1);
    }

    // Translated names widen the bar, which stays centred.
    void translatedNamesWidenTheBarSymmetrically() {
        DrawingStore store;
        const QRectF bounds(0, 0, 1600, 300);
        const QRectF plain = Renderer::hudRect(bounds, store);
        LongNames translator;
        QVERIFY(QCoreApplication::installTranslator(&translator));
        const QString line = Renderer::hudLine(store);
        const QRectF wide = Renderer::hudRect(bounds, store);
        const QRectF ink = hud(bounds, store, 1).inkBox();
        QCoreApplication::removeTranslator(&translator);

        QVERIFY(line.startsWith(QString::fromUtf8("Stylo · Rouge vif très long     P pen")));
        QVERIFY(wide.width() > plain.width() + 40);
        QVERIFY(near(wide.center().x(), 800, 0.01));
        QVERIFY(near(ink.left(), wide.left(), 1) && near(ink.right(), wide.right(), 1));
    }

    void shownOnlyWhileHudVisible_data() {
        QTest::addColumn<qreal>("dpr");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }
    void shownOnlyWhileHudVisible() {
        QFETCH(qreal, dpr);
        TestSettings settings;
        Defaults::registerDefaults(
            {{QStringLiteral("fadeSeconds"), 4.0}, {QStringLiteral("hudVisible"), true}});
        DrawingStore store;
        const QRectF bounds(0, 0, 1280, 200);
        const auto painted = [&] {
            Canvas canvas(bounds.size(), dpr);
            canvas.paint([&](QPainter& p) { Renderer::drawHUDIfVisible(p, bounds, store); });
            return canvas;
        };
        QVERIFY(!Defaults::hasObject(QStringLiteral("hudVisible")));
        QCOMPARE(painted().image, hud(bounds, store, dpr).image);
        Defaults::setValue(QStringLiteral("hudVisible"), false);
        QVERIFY(painted().isBlank());
        Defaults::setValue(QStringLiteral("hudVisible"), true);
        QVERIFY(!painted().isBlank());
    }
};

QTEST_MAIN(HintBarTest)
#include "tst_hintbar.moc"
