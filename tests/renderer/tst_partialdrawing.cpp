#include "Canvas.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QtTest>
#include <cmath>

// What repainting part of the overlay relies on: a stroke drawn only where it
// shows in an area is, inside that area, pixel for pixel the whole stroke; and
// the bounds of a stroke's newest piece hold every pixel that adding it changed.
class PartialDrawingTest : public QObject {
    Q_OBJECT

    static constexpr QSizeF size{400, 300};
    const QPointF origin{-50, 20};

    // A scribble that runs over itself many times, as a presenter's circling does.
    static Item scribble(Tool kind, qreal width, int count) {
        Item item;
        item.kind = kind;
        item.color = paletteColor(3).color;
        item.width = width;
        for (int i = 0; i < count; ++i) {
            const qreal angle = i * 0.47;
            const qreal reach = 40 + 90 * std::abs(std::sin(i * 0.031));
            item.points.push_back(QPointF(150, 170) + QPointF(std::cos(angle) * reach * 1.3,
                                                              std::sin(angle) * reach * 0.8));
        }
        return item;
    }

    static void cases() {
        QTest::addColumn<int>("kind");
        QTest::addColumn<qreal>("width");
        QTest::addColumn<qreal>("ratio");
        for (const qreal ratio : {1.0, 2.0}) {
            QTest::addRow("pen 3 at %gx", ratio) << int(Tool::pen) << 3.0 << ratio;
            QTest::addRow("pen 16 at %gx", ratio) << int(Tool::pen) << 16.0 << ratio;
            QTest::addRow("highlighter 4 at %gx", ratio) << int(Tool::highlighter) << 4.0 << ratio;
        }
    }

    // Every device pixel of both canvases within the area, the same.
    static bool sameWithin(const Canvas& a, const Canvas& b, const QRectF& area, QString* where) {
        bool same = true;
        a.forEachPixel(area, [&](QRgb pixel, QPoint at) {
            if (same && pixel != b.image.pixel(at)) {
                same = false;
                *where = QStringLiteral("%1,%2").arg(at.x()).arg(at.y());
            }
        });
        return same;
    }

private Q_SLOTS:
    void withinAnAreaItIsTheWholeStroke_data() { cases(); }
    void withinAnAreaItIsTheWholeStroke() {
        QFETCH(int, kind);
        QFETCH(qreal, width);
        QFETCH(qreal, ratio);
        const Item item = scribble(Tool(kind), width, 600);
        Canvas whole(size, ratio, origin);
        whole.paint([&](QPainter& painter) { Renderer::draw(painter, item, 0.8, false); });
        const QList<QRectF> areas = {{140, 160, 12, 9},    {30, 100, 40, 30},  {200, 220, 3, 3},
                                     {-50, 20, 400, 300},  {260, 90, 50, 160}, {100, 230, 120, 8},
                                     {148.5, 40.25, 7, 5}, {-20, 180, 30, 30}};
        for (const QRectF& area : areas) {
            Canvas part(size, ratio, origin);
            part.paint([&](QPainter& painter) {
                painter.setClipRect(area);
                Renderer::drawWithin(painter, item, 0.8, false, area);
            });
            QString where;
            QVERIFY2(sameWithin(whole, part, area, &where),
                     qPrintable(QStringLiteral("%1 differs at device pixel %2")
                                    .arg(QString::fromUtf8(describe(area)), where)));
        }
    }

    void theNewestPieceHoldsEveryChange_data() { cases(); }
    void theNewestPieceHoldsEveryChange() {
        QFETCH(int, kind);
        QFETCH(qreal, width);
        QFETCH(qreal, ratio);
        const Item full = scribble(Tool(kind), width, 40);
        Item growing = full;
        growing.points.resize(1);
        Canvas before(size, ratio, origin);
        before.paint([&](QPainter& painter) { Renderer::draw(painter, growing, 1.0, false); });
        for (size_t count = 2; count <= full.points.size(); ++count) {
            const size_t had = growing.points.size();
            growing.points.push_back(full.points[count - 1]);
            Canvas after(size, ratio, origin);
            after.paint([&](QPainter& painter) { Renderer::draw(painter, growing, 1.0, false); });
            const QRectF changed = Renderer::tailBounds(growing, had);
            QRect outside;
            after.forEachPixel({}, [&](QRgb pixel, QPoint at) {
                const QPointF point = QPointF(at) / ratio + origin;
                const QRectF pixelArea(point, QSizeF(1, 1) / ratio);
                if (pixel != before.image.pixel(at) && !changed.contains(pixelArea))
                    outside |= QRect(at, QSize(1, 1));
            });
            const QRectF outsideOnDesktop(QPointF(outside.topLeft()) / ratio + origin,
                                          QSizeF(outside.size()) / ratio);
            QVERIFY2(outside.isNull(),
                     qPrintable(QStringLiteral("point %1: changes at %2 outside %3")
                                    .arg(count)
                                    .arg(QString::fromUtf8(describe(outsideOnDesktop)),
                                         QString::fromUtf8(describe(changed)))));
            before = after;
        }
        // Nothing new before the first point: the whole stroke.
        QCOMPARE(Renderer::tailBounds(full, 0), Renderer::itemBounds(full, false));
    }
};

QTEST_MAIN(PartialDrawingTest)
#include "tst_partialdrawing.moc"
