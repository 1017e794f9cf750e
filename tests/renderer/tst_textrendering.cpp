#include "Canvas.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QWidget>
#include <QtTest>

// Text items in real images at device pixel ratios 1 and 2, on a canvas that
// shows a screen whose origin is not the desktop's.
class TextRenderingTest : public QObject {
    Q_OBJECT

    static constexpr QPointF screen{-1280, 300};
    static constexpr QPointF anchor{-1240, 400};
    static constexpr qreal size = 30;

    static Item textItem(const QString& text, QColor color = paletteColor(0).color) {
        Item made;
        made.kind = Tool::text;
        made.points = {anchor};
        made.color = color;
        made.width = size;
        made.text = text;
        return made;
    }
    static Canvas painted(const Item& item, bool editing, qreal dpr, qreal alpha = 1.0) {
        Canvas canvas({400, 200}, dpr, screen);
        canvas.paint([&](QPainter& painter) { Renderer::draw(painter, item, alpha, editing); });
        return canvas;
    }
    // Pixels of the text itself: mostly opaque and reddish (the shadow is black).
    static bool isRedInk(QRgb p) { return qAlpha(p) > 160 && qRed(p) > 3 * qGreen(p) + 40; }
    static int shadowWeight(QRgb p) { return qRed(p) < 20 && qGreen(p) < 20 ? qAlpha(p) : 0; }
    static QFontMetricsF systemMetrics(QFont::Weight weight) {
        QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        font.setPixelSize(int(size));
        font.setWeight(weight);
        return QFontMetricsF(font);
    }
    static qreal lineHeight() { return systemMetrics(QFont::Bold).height(); }
    // Paints one item in its own coordinates, as a view inside a window does.
    class ItemView : public QWidget {
    public:
        ItemView(QWidget* parent, const Item& item) : QWidget(parent), item(item) {}
        void paintEvent(QPaintEvent*) override {
            QPainter painter(this);
            Renderer::draw(painter, item, 1.0, true);
        }
        Item item;
    };

    static void addRatios() {
        QTest::addColumn<qreal>("dpr");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }

private Q_SLOTS:
    // The line starts at the anchor and is centred vertically on it.
    void lineSitsOnItsAnchor_data() { addRatios(); }
    void lineSitsOnItsAnchor() {
        QFETCH(qreal, dpr);
        const Canvas text = painted(textItem(QStringLiteral("Hg")), false, dpr);
        const QRectF ink = text.inkBox(isRedInk);
        QVERIFY(!ink.isEmpty());
        // The left edge at the anchor, less only the glyph's own side bearing.
        QVERIFY2(ink.left() >= anchor.x() && ink.left() <= anchor.x() + size * 0.15,
                 qPrintable(QString::number(ink.left() - anchor.x())));
        const qreal h = lineHeight();
        QVERIFY(ink.top() >= anchor.y() - h / 2 - 1 && ink.bottom() <= anchor.y() + h / 2 + 1);
        QVERIFY(ink.top() < anchor.y() - h / 4);    // capitals reach well above
        QVERIFY(ink.bottom() > anchor.y() + h / 8); // the descender below

        // The bold system font at the item's size: as wide as its glyphs say.
        const QRectF capitals =
            painted(textItem(QStringLiteral("HHHH")), false, dpr).inkBox(isRedInk);
        const qreal boldWidth =
            systemMetrics(QFont::Bold).boundingRect(QStringLiteral("HHHH")).width();
        const qreal plainWidth =
            systemMetrics(QFont::Normal).boundingRect(QStringLiteral("HHHH")).width();
        QVERIFY2(
            std::abs(capitals.width() - boldWidth) < std::abs(capitals.width() - plainWidth) &&
                std::abs(capitals.width() - boldWidth) <= 4,
            qPrintable(
                QStringLiteral("%1 %2 %3").arg(capitals.width()).arg(boldWidth).arg(plainWidth)));

        // The caret spans the whole line, so its ink is centred on the anchor.
        const Canvas caret = painted(textItem(QString()), true, dpr);
        const QRectF caretInk = caret.inkBox(isRedInk);
        QVERIFY2(std::abs(caretInk.center().y() - anchor.y()) <= 2,
                 qPrintable(QString::number(caretInk.center().y() - anchor.y())));
        QVERIFY(caretInk.height() > h * 0.8);
        QVERIFY(caretInk.left() >= anchor.x() - 1 && caretInk.left() <= anchor.x() + 3);
    }

    void caretShowsOnlyWhileEditing_data() { addRatios(); }
    void caretShowsOnlyWhileEditing() {
        QFETCH(qreal, dpr);
        const Item hi = textItem(QStringLiteral("Hi"));
        const QRectF plain = painted(hi, false, dpr).inkBox(isRedInk);
        const Canvas editing = painted(hi, true, dpr);
        const QRectF withCaret = editing.inkBox(isRedInk);
        QCOMPARE(withCaret.left(), plain.left());
        QVERIFY(withCaret.right() > plain.right() + 2);

        // Empty text: the caret alone while editing, nothing at all afterwards.
        QVERIFY(!painted(textItem(QString()), true, dpr).isBlank());
        QVERIFY(painted(textItem(QString()), false, dpr).isBlank());
    }

    void softShadowFallsDownward_data() { addRatios(); }
    void softShadowFallsDownward() {
        QFETCH(qreal, dpr);
        const Item item = textItem(QStringLiteral("WHW"), paletteColor(4).color);
        const Canvas canvas = painted(item, false, dpr);
        const auto isWhiteInk = [](QRgb p) { return qAlpha(p) > 200 && qBlue(p) > 200; };
        const QRectF glyphs = canvas.inkBox(isWhiteInk);

        // Dark, translucent, soft: present a little beyond the glyphs, gone a
        // little further, never darker than black at 0.55.
        const QRectF shadow = canvas.inkBox([](QRgb p) { return shadowWeight(p) > 0; });
        QVERIFY2(shadow.contains(glyphs.adjusted(-2.5, -1.5, 2.5, 3.5)),
                 describe(shadow) + " around " + describe(glyphs));
        QVERIFY(glyphs.adjusted(-6, -6, 6, 7).contains(shadow));
        int darkest = 0;
        for (int y = 0; y < canvas.image.height(); ++y)
            for (int x = 0; x < canvas.image.width(); ++x)
                darkest = std::max(darkest, shadowWeight(canvas.image.pixel(x, y)));
        QVERIFY2(darkest > 40 && darkest <= 141, qPrintable(QString::number(darkest)));

        // One pixel lower: more of it shows below the glyphs than above.
        const auto shadowIn = [&](qreal top, qreal bottom) {
            int sum = 0;
            for (qreal y = top; y < bottom; y += 1 / dpr)
                for (qreal x = glyphs.left(); x < glyphs.right(); x += 1 / dpr)
                    sum += shadowWeight(canvas.at({x, y}));
            return sum;
        };
        const int above = shadowIn(glyphs.top() - 4, glyphs.top());
        const int below = shadowIn(glyphs.bottom(), glyphs.bottom() + 4);
        QVERIFY2(below > above * 1.3, qPrintable(QStringLiteral("%1 %2").arg(above).arg(below)));
    }

    // The shadow image is made in device pixels: at 2x it lies around the
    // glyphs as it does at 1x, neither scaled nor shifted.
    void shadowLandsAlikeAtEveryRatio() {
        const Item item = textItem(QStringLiteral("HH"), paletteColor(4).color);
        const auto margins = [&](qreal dpr) {
            const Canvas canvas = painted(item, false, dpr);
            const QRectF glyphs = canvas.inkBox([](QRgb p) { return qBlue(p) > 128; });
            const QRectF shadow = canvas.inkBox([](QRgb p) { return shadowWeight(p) > 8; });
            return QMarginsF(glyphs.left() - shadow.left(), glyphs.top() - shadow.top(),
                             shadow.right() - glyphs.right(), shadow.bottom() - glyphs.bottom());
        };
        const QMarginsF at1 = margins(1);
        const QMarginsF at2 = margins(2);
        QVERIFY(std::abs(at1.left() - at2.left()) <= 1 && std::abs(at1.top() - at2.top()) <= 1 &&
                std::abs(at1.right() - at2.right()) <= 1 &&
                std::abs(at1.bottom() - at2.bottom()) <= 1);
    }

    // A view placed inside its window paints the same shadow as an image does,
    // although its device pixels are offset in the window's.
    void sameInAWidgetAsInAnImage_data() { addRatios(); }
    void sameInAWidgetAsInAnImage() {
        QFETCH(qreal, dpr);
        Item item = textItem(QStringLiteral("WHW"));
        item.points = {{150, 90}};
        QWidget window;
        window.resize(400, 200);
        ItemView view(&window, item);
        view.setGeometry(120, 60, 260, 120);
        Canvas inWindow({400, 200}, dpr);
        window.render(&inWindow.image, QPoint(), QRegion(), QWidget::DrawChildren);

        Canvas alone({400, 200}, dpr, {-120, -60});
        alone.paint([&](QPainter& painter) { Renderer::draw(painter, item, 1.0, true); });
        QCOMPARE(inWindow.image, alone.image);
    }

    void alphaReachesTextAndShadow_data() { addRatios(); }
    void alphaReachesTextAndShadow() {
        QFETCH(qreal, dpr);
        QColor faint = paletteColor(0).color;
        faint.setAlphaF(0.3f); // replaced, never multiplied
        const Item item = textItem(QStringLiteral("HH"), faint);
        const Canvas full = painted(item, false, dpr);
        QCOMPARE(painted(item, true, dpr, 1.8).image, painted(item, true, dpr, 1.0).image);
        QVERIFY(painted(item, true, dpr, 0.0).isBlank());
        QVERIFY(painted(item, true, dpr, -2.0).isBlank());

        const Canvas half = painted(item, false, dpr, 0.5);
        // Premultiplied red is the text's alone (the shadow is black): full red at half.
        int textRed = 0, shadowAlpha = 0;
        for (int y = 0; y < half.image.height(); ++y) {
            for (int x = 0; x < half.image.width(); ++x) {
                const QRgb p = half.image.pixel(x, y);
                if (isRedInk(full.image.pixel(x, y)))
                    textRed = std::max(textRed, qRed(p));
                shadowAlpha = std::max(shadowAlpha, shadowWeight(p));
            }
        }
        QVERIFY2(std::abs(textRed - 128) <= 2, qPrintable(QString::number(textRed)));
        QVERIFY2(shadowAlpha > 10 && shadowAlpha <= 71, qPrintable(QString::number(shadowAlpha)));
    }
};

QTEST_MAIN(TextRenderingTest)
#include "tst_textrendering.moc"
