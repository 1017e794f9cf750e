#include "Canvas.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QtTest>
#include <cmath>

Q_DECLARE_METATYPE(Item)

// Strokes and shapes painted into real images at device pixel ratios 1 and 2,
// through a translation like the overlay's, checked pixel by pixel.
class ItemRenderingTest : public QObject {
    Q_OBJECT

    // Where the canvas sits on the virtual desktop, as a second screen would.
    static constexpr QPointF screen{1920, 0};

    static Item item(Tool kind, std::vector<QPointF> points, qreal width,
                     QColor color = paletteColor(0).color) {
        Item made;
        made.kind = kind;
        for (QPointF& point : points)
            point += screen;
        made.points = std::move(points);
        made.width = width;
        made.color = color;
        return made;
    }
    static QPointF at(qreal x, qreal y) { return screen + QPointF(x, y); }

    static Canvas painted(const Item& drawn, qreal alpha = 1.0, qreal dpr = 1.0) {
        Canvas canvas({200, 200}, dpr, screen);
        canvas.paint([&](QPainter& painter) { Renderer::draw(painter, drawn, alpha, false); });
        return canvas;
    }
    static bool near(qreal actual, qreal expected, qreal tolerance) {
        return std::abs(actual - expected) <= tolerance;
    }
    static void addRatios() {
        QTest::addColumn<qreal>("dpr");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }

private Q_SLOTS:
    void penStrokeColourWidthCapsAndJoins_data() { addRatios(); }
    void penStrokeColourWidthCapsAndJoins() {
        QFETCH(qreal, dpr);
        const QColor red = paletteColor(0).color;
        const Canvas line = painted(item(Tool::pen, {{30, 40}, {170, 40}}, 8), 1.0, dpr);
        for (qreal x : {31.0, 100.0, 169.0}) {
            const QRgb centre = line.at(at(x, 40));
            QCOMPARE(qAlpha(centre), 255);
            QVERIFY(near(qRed(centre), red.red(), 1) && near(qGreen(centre), red.green(), 1) &&
                    near(qBlue(centre), red.blue(), 1));
        }
        // Half the width on each side, round caps past both ends, nothing more.
        const QRectF ink = line.inkBox();
        QVERIFY2(near(ink.top(), 36, 1) && near(ink.bottom(), 44, 1) &&
                     near(ink.left(), at(26, 0).x(), 1) && near(ink.right(), at(174, 0).x(), 1),
                 describe(ink));
        QCOMPARE(line.alphaAt(at(173.5, 43.5)), 0); // where a square cap would paint

        // A right-angle corner: the round join covers what a bevel cuts off and
        // leaves out what a miter would add.
        const Canvas corner =
            painted(item(Tool::pen, {{30, 100}, {100, 100}, {100, 170}}, 10), 1.0, dpr);
        QVERIFY(corner.alphaAt(at(102.5, 96.5)) > 250);
        QCOMPARE(corner.alphaAt(at(104.5, 95.5)), 0);
        QCOMPARE(corner.alphaAt(at(60, 120)), 0); // inside the corner: nothing filled
    }

    void colourAlphaIsReplacedNotMultiplied_data() { addRatios(); }
    void colourAlphaIsReplacedNotMultiplied() {
        QFETCH(qreal, dpr);
        QColor faint = paletteColor(3).color;
        faint.setAlphaF(0.3f);
        const Item stroke = item(Tool::pen, {{30, 40}, {170, 40}}, 8, faint);
        QCOMPARE(painted(stroke, 1.0, dpr).alphaAt(at(100, 40)), 255);
        QVERIFY(near(painted(stroke, 0.5, dpr).alphaAt(at(100, 40)), 128, 1));
        QVERIFY(near(painted(item(Tool::rect, {{30, 40}, {170, 150}}, 6, faint), 0.5, dpr)
                         .alphaAt(at(100, 40)),
                     128, 1));
    }

    void alphaIsClampedToZeroAndOne_data() { addRatios(); }
    void alphaIsClampedToZeroAndOne() {
        QFETCH(qreal, dpr);
        const Item stroke = item(Tool::pen, {{30, 40}, {170, 60}, {100, 150}}, 6);
        QCOMPARE(painted(stroke, 1.7, dpr).image, painted(stroke, 1.0, dpr).image);
        QVERIFY(painted(stroke, -0.3, dpr).isBlank());
        QVERIFY(painted(stroke, qQNaN(), dpr).isBlank());
        const Item highlight = item(Tool::highlighter, {{30, 40}, {170, 40}}, 4);
        QCOMPARE(painted(highlight, 5.0, dpr).image, painted(highlight, 1.0, dpr).image);
        QVERIFY(painted(highlight, -1.0, dpr).isBlank());
    }

    void highlighterIsWideTranslucentAndOneStroke_data() { addRatios(); }
    void highlighterIsWideTranslucentAndOneStroke() {
        QFETCH(qreal, dpr);
        QColor yellow = paletteColor(1).color;
        yellow.setAlphaF(0.9f); // replaced, so it has no say
        // A stroke that crosses itself at (100, 50).
        const Item loop = item(Tool::highlighter,
                               {{20, 50}, {180, 50}, {180, 120}, {100, 120}, {100, 10}}, 4, yellow);
        const Canvas canvas = painted(loop, 1.0, dpr);
        QVERIFY(near(canvas.alphaAt(at(60, 50)), 102, 1)); // 0.4 of full
        QCOMPARE(canvas.alphaAt(at(100, 50)), canvas.alphaAt(at(60, 50)));
        QCOMPARE(canvas.at(at(100, 50)), canvas.at(at(60, 50)));
        // Width × 4: 16 across.
        const QRectF ink = canvas.inkBox([](QRgb p) { return qAlpha(p) > 50; });
        QVERIFY(near(ink.top(), 2, 1) && near(ink.left(), at(12, 0).x(), 1) &&
                near(ink.right(), at(188, 0).x(), 1));
        QVERIFY(near(painted(loop, 0.5, dpr).alphaAt(at(60, 50)), 51, 1));

        // A faded pen stroke is one stroke too, and so is an arrow with its head.
        const Item crossing = item(Tool::pen, {{20, 50}, {180, 50}, {100, 120}, {100, 10}}, 6);
        const Canvas faded = painted(crossing, 0.5, dpr);
        QCOMPARE(faded.at(at(100, 50)), faded.at(at(60, 50)));
        const Canvas arrow = painted(item(Tool::arrow, {{20, 100}, {150, 100}}, 6), 0.5, dpr);
        QCOMPARE(arrow.at(at(149, 100)), arrow.at(at(60, 100)));
    }

    void onePointStrokesAreRoundDots_data() {
        QTest::addColumn<qreal>("dpr");
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("pointCount");
        QTest::addColumn<qreal>("diameter");
        for (qreal dpr : {1.0, 2.0}) {
            const QByteArray r = QByteArray::number(dpr) + "x ";
            QTest::newRow(r + "pen, one point") << dpr << int(Tool::pen) << 1 << 10.0;
            QTest::newRow(r + "pen, a click") << dpr << int(Tool::pen) << 2 << 10.0;
            QTest::newRow(r + "highlighter") << dpr << int(Tool::highlighter) << 1 << 40.0;
            QTest::newRow(r + "highlighter, a click") << dpr << int(Tool::highlighter) << 2 << 40.0;
        }
    }
    void onePointStrokesAreRoundDots() {
        QFETCH(qreal, dpr);
        QFETCH(int, kind);
        QFETCH(int, pointCount);
        QFETCH(qreal, diameter);
        const std::vector<QPointF> points(size_t(pointCount), QPointF(100, 100));
        const Canvas dot = painted(item(Tool(kind), points, 10), 1.0, dpr);
        const QRectF ink = dot.inkBox([](QRgb p) { return qAlpha(p) > 20; });
        QVERIFY2(near(ink.width(), diameter, 1.5) && near(ink.height(), diameter, 1.5),
                 qPrintable(QStringLiteral("%1 x %2").arg(ink.width()).arg(ink.height())));
        QVERIFY(near(ink.center().x(), at(100, 0).x(), 0.75) && near(ink.center().y(), 100, 0.75));
        // Round, not square: the corners of its box stay empty.
        const qreal r = diameter * 0.5;
        QCOMPARE(dot.alphaAt(at(100 + r * 0.9, 100 + r * 0.9)), 0);
        QCOMPARE(dot.alphaAt(at(100 - r * 0.9, 100 - r * 0.9)), 0);
        QVERIFY(dot.alphaAt(at(100 + r * 0.65, 100)) > 0);
    }

    void shortArrowsPaintNothing_data() {
        QTest::addColumn<qreal>("dpr");
        QTest::addColumn<QPointF>("end");
        for (qreal dpr : {1.0, 2.0}) {
            const QByteArray r = QByteArray::number(dpr) + "x ";
            QTest::newRow(r + "click") << dpr << QPointF(100, 100);
            QTest::newRow(r + "length 1") << dpr << QPointF(101, 100);
            QTest::newRow(r + "length 2") << dpr << QPointF(100, 102);
            QTest::newRow(r + "length 1.9, diagonal") << dpr << QPointF(101.14, 101.52);
        }
    }
    void shortArrowsPaintNothing() {
        QFETCH(qreal, dpr);
        QFETCH(QPointF, end);
        const Item arrow = item(Tool::arrow, {{100, 100}, end}, 6);
        QVERIFY(painted(arrow, 1.0, dpr).isBlank());
        QVERIFY(painted(item(Tool::arrow, {{100, 100}}, 6), 1.0, dpr).isBlank());
        QVERIFY(Renderer::itemBounds(arrow, false).isEmpty());
        // Just past the limit, it shows.
        QVERIFY(!painted(item(Tool::arrow, {{100, 100}, {102.1, 100}}, 6), 1.0, dpr).isBlank());
    }

    void arrowHeadLength_data() {
        QTest::addColumn<qreal>("dpr");
        QTest::addColumn<qreal>("length");
        QTest::addColumn<qreal>("width");
        QTest::addColumn<qreal>("head");
        for (qreal dpr : {1.0, 2.0}) {
            const QByteArray r = QByteArray::number(dpr) + "x ";
            QTest::newRow(r + "clamped to a short shaft") << dpr << 10.0 << 4.0 << 10.0;
            QTest::newRow(r + "width x 4.5") << dpr << 100.0 << 4.0 << 18.0;
            QTest::newRow(r + "at least 16") << dpr << 100.0 << 2.0 << 16.0;
            QTest::newRow(r + "wide") << dpr << 100.0 << 8.0 << 36.0;
        }
    }
    void arrowHeadLength() {
        QFETCH(qreal, dpr);
        QFETCH(qreal, length);
        QFETCH(qreal, width);
        QFETCH(qreal, head);
        const QPointF tip(40 + length, 100);
        const Canvas arrow = painted(item(Tool::arrow, {{40, 100}, tip}, width), 1.0, dpr);
        // Each barb leaves the tip 0.5 radian off the shaft, backwards.
        const qreal back = std::cos(0.5) * head;
        const qreal side = std::sin(0.5) * head;
        const QRectF ink = arrow.inkBox([](QRgb p) { return qAlpha(p) > 127; });
        QVERIFY2(near(ink.top(), 100 - side - width / 2, 1) &&
                     near(ink.bottom(), 100 + side + width / 2, 1),
                 describe(ink));
        QVERIFY(arrow.alphaAt(at(tip.x() - back, 100 - side)) > 127);
        QVERIFY(arrow.alphaAt(at(tip.x() - back, 100 + side)) > 127);
        if (length > head + 4) {
            // An open V: between barb and shaft nothing is filled.
            QCOMPARE(arrow.alphaAt(at(tip.x() - back, 100 - side / 2)), 0);
        }
        QVERIFY(
            Renderer::itemBounds(item(Tool::arrow, {{40, 100}, tip}, width), false).contains(ink));
    }

    void shapesAreNormalisedOutlines_data() { addRatios(); }
    void shapesAreNormalisedOutlines() {
        QFETCH(qreal, dpr);
        for (Tool kind : {Tool::rect, Tool::ellipse}) {
            const Canvas downRight = painted(item(kind, {{40, 30}, {160, 110}}, 6), 1.0, dpr);
            const Canvas upLeft = painted(item(kind, {{160, 110}, {40, 30}}, 6), 1.0, dpr);
            const Canvas upRight = painted(item(kind, {{40, 110}, {160, 30}}, 6), 1.0, dpr);
            QCOMPARE(upLeft.image, downRight.image);
            QCOMPARE(upRight.image, downRight.image);
            // Edges midway along each side, nothing inside, nothing outside.
            for (QPointF edge : {at(100, 30), at(100, 110), at(40, 70), at(160, 70)})
                QCOMPARE(downRight.alphaAt(edge), 255);
            QCOMPARE(downRight.alphaAt(at(100, 70)), 0);
            QCOMPARE(downRight.alphaAt(at(100, 25)), 0);
            QCOMPARE(downRight.alphaAt(at(165, 70)), 0);
            QVERIFY(painted(item(kind, {{40, 30}}, 6), 1.0, dpr).isBlank());
        }
        const Canvas rect = painted(item(Tool::rect, {{40, 30}, {160, 110}}, 6), 1.0, dpr);
        const Canvas ellipse = painted(item(Tool::ellipse, {{40, 30}, {160, 110}}, 6), 1.0, dpr);
        QCOMPARE(rect.alphaAt(at(41, 31)), 255);
        QCOMPARE(ellipse.alphaAt(at(41, 31)), 0);
        // Outlines only, also on a painter whose brush is set (as the hint bar leaves it).
        Canvas afterBrush({200, 200}, dpr, screen);
        afterBrush.paint([&](QPainter& painter) {
            painter.setBrush(Qt::blue);
            Renderer::draw(painter, item(Tool::rect, {{40, 30}, {160, 110}}, 6), 1.0, false);
            Renderer::draw(painter, item(Tool::ellipse, {{40, 30}, {160, 110}}, 6), 1.0, false);
            Renderer::draw(painter, item(Tool::arrow, {{40, 150}, {160, 150}}, 6), 1.0, false);
        });
        QCOMPARE(afterBrush.alphaAt(at(70, 80)), 0);
        QCOMPARE(afterBrush.alphaAt(at(140, 144.75)), 0); // inside the arrow head's V
        // A flat drag is not refused: a rectangle of no height is a line.
        QVERIFY(!painted(item(Tool::rect, {{40, 30}, {160, 30}}, 6), 1.0, dpr).isBlank());
    }

    void nothingWithoutPoints() {
        for (Tool kind : allTools) {
            const Item empty = item(kind, {}, 6);
            QVERIFY(painted(empty).isBlank());
            QVERIFY(Renderer::itemBounds(empty, true).isEmpty());
            QVERIFY(Renderer::strokePath(empty).isEmpty());
            QVERIFY(!Renderer::shapePath(empty) || Renderer::shapePath(empty)->isEmpty());
        }
    }

    void pathsPerKind() {
        const QPainterPath dot = Renderer::strokePath(item(Tool::pen, {{10, 10}}, 4));
        QCOMPARE(dot.elementCount(), 2);
        QCOMPARE(QPointF(dot.elementAt(1)), at(10.01, 10));
        const Item zigzag = item(Tool::pen, {{10, 10}, {50, 40}, {90, 10}}, 4);
        QCOMPARE(Renderer::shapePath(zigzag), std::optional(Renderer::strokePath(zigzag)));
        QVERIFY(!Renderer::shapePath(item(Tool::highlighter, {{10, 10}, {50, 40}}, 4)));
        QVERIFY(!Renderer::shapePath(item(Tool::text, {{10, 10}}, 30)));
        QVERIFY(!Renderer::shapePath(item(Tool::ellipse, {{90, 80}}, 4)));
    }

    // The fast way draw() takes for freehand strokes paints what stroking the
    // path paints.
    void drawMatchesStrokedPath_data() { addRatios(); }
    void drawMatchesStrokedPath() {
        QFETCH(qreal, dpr);
        const Item zigzag =
            item(Tool::pen, {{10, 10}, {50, 140}, {90, 10}, {130, 140}, {131, 141}}, 7);
        Canvas viaPath({200, 200}, dpr, screen);
        viaPath.paint([&](QPainter& painter) {
            painter.setRenderHint(QPainter::Antialiasing);
            painter.strokePath(Renderer::strokePath(zigzag),
                               QPen(zigzag.color, 7, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        });
        QCOMPARE(painted(zigzag, 1.0, dpr).image, viaPath.image);
    }

    // Everything an item paints lies inside its bounds, so that repainting
    // only those bounds can never leave a trace behind.
    void boundsHoldEverythingPainted_data() {
        QTest::addColumn<qreal>("dpr");
        QTest::addColumn<Item>("drawn");
        QTest::addColumn<bool>("editing");
        Item text = item(Tool::text, {{20, 100}}, 30);
        text.text = QStringLiteral("Wjg Ågy");
        Item emptyText = text;
        emptyText.text.clear();
        for (qreal dpr : {1.0, 2.0}) {
            const QByteArray r = QByteArray::number(dpr) + "x ";
            QTest::newRow(r + "pen")
                << dpr << item(Tool::pen, {{20, 20}, {180, 60}, {90, 170}}, 9) << false;
            QTest::newRow(r + "pen dot") << dpr << item(Tool::pen, {{50, 50}}, 16) << false;
            QTest::newRow(r + "highlighter")
                << dpr << item(Tool::highlighter, {{30, 30}, {170, 170}}, 6) << false;
            QTest::newRow(r + "arrow")
                << dpr << item(Tool::arrow, {{170, 20}, {40, 150}}, 10) << false;
            QTest::newRow(r + "short arrow")
                << dpr << item(Tool::arrow, {{100, 100}, {104, 97}}, 4) << false;
            QTest::newRow(r + "ellipse")
                << dpr << item(Tool::ellipse, {{30, 40}, {170, 160}}, 12) << false;
            QTest::newRow(r + "rect")
                << dpr << item(Tool::rect, {{170, 160}, {30, 40}}, 12) << false;
            QTest::newRow(r + "text") << dpr << text << false;
            QTest::newRow(r + "text editing") << dpr << text << true;
            QTest::newRow(r + "caret alone") << dpr << emptyText << true;
        }
    }
    void boundsHoldEverythingPainted() {
        QFETCH(qreal, dpr);
        QFETCH(Item, drawn);
        QFETCH(bool, editing);
        Canvas canvas({400, 200}, dpr, screen);
        canvas.paint([&](QPainter& painter) { Renderer::draw(painter, drawn, 1.0, editing); });
        const QRectF ink = canvas.inkBox();
        const QRectF bounds = Renderer::itemBounds(drawn, editing);
        QVERIFY(!ink.isEmpty());
        QVERIFY2(bounds.contains(ink), describe(ink) + " outside " + describe(bounds));
        // And not much more, or partial repaints would cost for nothing. Text
        // keeps its whole line box, the caret's advance included.
        const qreal slack = drawn.kind == Tool::text ? drawn.width : 2.5;
        QVERIFY(ink.adjusted(-slack, -slack, slack, slack).contains(bounds));
    }
};

QTEST_MAIN(ItemRenderingTest)
#include "tst_itemrendering.moc"
