#include "Canvas.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QtTest>

// Items and the hint bar as real pixels at ratios 1 and 2, items on a second screen.
class RendererTest : public QObject {
    Q_OBJECT

    static constexpr QPointF screen{1920, 100};
    static inline const QColor red = paletteColor(0).color;

    static Item item(Tool kind, std::vector<QPointF> points, qreal width, QColor color = red,
                     const QString& text = {}) {
        for (QPointF& point : points)
            point += screen;
        return Item{kind, points, color, width, text, {}};
    }
    static QPointF at(qreal x, qreal y) { return screen + QPointF(x, y); }
    static Canvas painted(const Item& drawn, qreal alpha = 1.0, bool editing = false) {
        QFETCH_GLOBAL(qreal, dpr);
        Canvas canvas({300, 200}, dpr, screen);
        canvas.paint([&](QPainter& painter) { Renderer::draw(painter, drawn, alpha, editing); });
        return canvas;
    }
    static QFont font(int pixelSize, QFont::Weight weight) {
        QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        font.setPixelSize(pixelSize);
        font.setWeight(weight);
        return font;
    }
    static bool isRedInk(QRgb p) { return qAlpha(p) > 160 && qRed(p) > 3 * qGreen(p) + 40; }

private Q_SLOTS:
    void initTestCase_data() {
        QTest::addColumn<qreal>("dpr");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }

    // The palette as it reaches the screen, in sRGB.
    void paletteColours() {
        const std::vector<std::pair<QString, QRgb>> golden{
            {"Red", qRgb(255, 59, 48)},     {"Yellow", qRgb(255, 214, 10)},
            {"Green", qRgb(51, 199, 89)},   {"Blue", qRgb(10, 133, 255)},
            {"White", qRgb(255, 255, 255)}, {"Black", qRgb(0, 0, 0)}};
        QCOMPARE(palette().size(), golden.size());
        for (int i = 0; i < int(golden.size()); ++i) {
            QCOMPARE(paletteColor(i).name, golden[i].first);
            const Item line = item(Tool::pen, {{30, 40}, {170, 40}}, 8, paletteColor(i).color);
            QCOMPARE(QColor(painted(line).at(at(100, 40))), QColor(golden[i].second));
        }
    }

    void penStrokeWidthCapsJoinsAndAlpha() {
        const Canvas line = painted(item(Tool::pen, {{30, 40}, {170, 40}}, 8));
        // Half the width on each side, round caps past both ends, nothing more.
        QVERIFY2(near(line.inkBox(), QRectF(at(26, 36), at(174, 44)), 1), describe(line.inkBox()));
        QCOMPARE(line.alphaAt(at(173.5, 43.5)), 0); // where a square cap would paint
        // A right angle: the round join covers what a bevel cuts off, not what a miter adds.
        const Canvas corner = painted(item(Tool::pen, {{30, 100}, {100, 100}, {100, 170}}, 10));
        QVERIFY(corner.alphaAt(at(102.5, 96.5)) > 250 && corner.alphaAt(at(104.5, 95.5)) == 0);
        QCOMPARE(corner.alphaAt(at(60, 120)), 0); // nothing filled
        // The colour's own alpha is replaced, never multiplied; alpha is clamped.
        const QColor faint(red.red(), red.green(), red.blue(), 77);
        const Item stroke = item(Tool::pen, {{30, 40}, {170, 60}, {100, 150}}, 6, faint);
        QCOMPARE(painted(stroke).alphaAt(at(100, 50)), 255);
        QVERIFY(near(painted(stroke, 0.5).alphaAt(at(100, 50)), 128, 1));
        QVERIFY(painted(stroke, -0.3).isBlank() && painted(stroke, qQNaN()).isBlank());
    }

    void highlighterIsWideTranslucentAndOneStroke() {
        // A stroke that crosses itself at (100, 50) does not darken there.
        const Item loop =
            item(Tool::highlighter, {{20, 50}, {180, 50}, {180, 120}, {100, 120}, {100, 10}}, 4);
        const Canvas canvas = painted(loop, 5.0);
        QVERIFY(near(canvas.alphaAt(at(60, 50)), 102, 1)); // 0.4 of full
        QCOMPARE(canvas.at(at(100, 50)), canvas.at(at(60, 50)));
        const QRectF ink = canvas.inkBox([](QRgb p) { return qAlpha(p) > 50; });
        QVERIFY2(near(ink, QRectF(at(12, 2), at(188, 128)), 1),
                 describe(ink)); // width × 4, round caps
        QVERIFY(near(painted(loop, 0.5).alphaAt(at(60, 50)), 51, 1));
    }

    void clicksAreRoundDots() {
        for (const auto& [kind, count, d] :
             {std::tuple(Tool::pen, 1, 10.0), {Tool::pen, 2, 10.0}, {Tool::highlighter, 1, 40.0}}) {
            const Canvas dot =
                painted(item(kind, std::vector(size_t(count), QPointF(100, 100)), 10));
            const QRectF ink = dot.inkBox([](QRgb p) { return qAlpha(p) > 20; });
            QVERIFY2(near(ink, QRectF(at(100 - d / 2, 100 - d / 2), QSizeF(d, d)), 0.75),
                     describe(ink));
            QCOMPARE(dot.alphaAt(at(100 + d * 0.45, 100 + d * 0.45)), 0); // round, not square
        }
    }

    void arrows() {
        // Too short to point anywhere: nothing.
        const Item stub = item(Tool::arrow, {{100, 100}, {101.14, 101.52}}, 6);
        QVERIFY(painted(stub).isBlank() && Renderer::itemBounds(stub, false).isEmpty());
        // The head: at least 16, width × 4.5, never longer than the shaft; its
        // barbs leave the tip 0.5 radian off the shaft, an open V.
        for (const auto& [length, width, head] :
             {std::tuple(10.0, 4.0, 10.0), {100.0, 4.0, 18.0}, {100.0, 2.0, 16.0}}) {
            const qreal tip = 40 + length, back = std::cos(0.5) * head, side = std::sin(0.5) * head;
            const Canvas arrow = painted(item(Tool::arrow, {{40, 100}, {tip, 100}}, width));
            const QRectF ink = arrow.inkBox([](QRgb p) { return qAlpha(p) > 127; });
            QVERIFY2(near(ink.top(), at(0, 100 - side - width / 2).y(), 1) &&
                         near(ink.bottom(), at(0, 100 + side + width / 2).y(), 1),
                     describe(ink));
            QVERIFY(std::min(arrow.alphaAt(at(tip - back, 100 - side)),
                             arrow.alphaAt(at(tip - back, 100 + side))) > 127);
            if (length > head + 4)
                QCOMPARE(arrow.alphaAt(at(tip - back, 100 - side / 2)), 0);
        }
    }

    void shapesAreNormalisedOutlines() {
        for (Tool kind : {Tool::rect, Tool::ellipse}) {
            const Canvas downRight = painted(item(kind, {{40, 30}, {160, 110}}, 6));
            QCOMPARE(painted(item(kind, {{160, 110}, {40, 30}}, 6)).image, downRight.image);
            QCOMPARE(painted(item(kind, {{40, 110}, {160, 30}}, 6)).image, downRight.image);
            for (QPointF edge : {at(100, 30), at(100, 110), at(40, 70), at(160, 70)})
                QCOMPARE(downRight.alphaAt(edge), 255);
            for (QPointF off : {at(100, 70), at(100, 25), at(165, 70)})
                QCOMPARE(downRight.alphaAt(off), 0);
            QCOMPARE(downRight.alphaAt(at(41, 31)), kind == Tool::rect ? 255 : 0);
        }
        for (Tool kind : allTools)
            QVERIFY(painted(item(kind, {}, 6, red, "x"), 1, true).isBlank());
    }

    void textSitsOnItsAnchorWithACaretWhileEditing() {
        const qreal half = QFontMetricsF(font(30, QFont::Bold)).height() / 2;
        const Item text = item(Tool::text, {{40, 100}}, 30, red, QStringLiteral("Hg"));
        const QRectF ink = painted(text).inkBox(isRedInk);
        QVERIFY2(QRectF(at(40, 100 - half - 1), at(44.5, 100 + half + 1)).contains(ink.topLeft()) &&
                     ink.top() < at(0, 100 - half / 2).y() &&
                     ink.bottom() > at(0, 100 + half / 4).y(),
                 describe(ink));
        const QRectF editing = painted(text, 1, true).inkBox(isRedInk);
        QVERIFY(editing.left() == ink.left() && editing.right() > ink.right() + 2);
        QVERIFY(painted(item(Tool::text, {{40, 100}}, 30)).isBlank()); // left empty
    }

    // Centred on any bounds, so a longer line widens the bar on both sides.
    void hintBarIsACapsuleAtTheTop() {
        for (const auto& [bounds, tool, colour] :
             {std::tuple(QRectF(0, 0, 1280, 400), Tool::pen, 0),
              {QRectF(100, 40, 1100, 300), Tool::highlighter, 3}}) {
            QFETCH_GLOBAL(qreal, dpr);
            Canvas canvas(QSizeF(bounds.right(), bounds.bottom()), dpr);
            canvas.paint([&](QPainter& p) { Renderer::drawHUD(p, bounds, tool, colour); });
            // Text width + 52 wide, text height + 14 high, 70 below the top.
            const QFontMetricsF metrics(font(12, QFont::Medium));
            const qreal width = metrics.horizontalAdvance(Renderer::hudLine(tool, colour)) + 52;
            const QRectF bar(bounds.center().x() - width / 2, bounds.top() + 70, width,
                             metrics.height() + 14);
            QVERIFY2(near(canvas.inkBox(), bar, 1), describe(canvas.inkBox()) + describe(bar));
            QVERIFY(QRectF(Renderer::hudRect(bounds, tool, colour).toAlignedRect())
                        .contains(canvas.inkBox()));
            // A capsule in the bar colour (white level 0.1 at 0.82), its corners empty.
            const QRgb inside = canvas.at({bar.left() + 6, bar.center().y()});
            QVERIFY(near(qAlpha(inside), 209, 2) && near(qRed(inside), 21, 2));
            QCOMPARE(canvas.alphaAt(bar.topLeft() + QPointF(1, 1)), 0);
        }
    }
};

QTEST_MAIN(RendererTest)
#include "tst_renderer.moc"
