#include "Canvas.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QtTest>

// What partial repaints rely on, for every kind: ink within its bounds, and
// drawn within an area, the same there as whole. QUILLERY_SAMPLE_PNG=path also
// writes the scene over a plain desktop there (docs/sample.png).
class SampleSceneTest : public QObject {
    Q_OBJECT

    struct Drawn {
        Item item;
        bool editing = false;
        qreal alpha = 1.0;
    };

    static Item item(Tool kind, int colour, qreal width, std::vector<QPointF> points,
                     const QString& text = {}) {
        return Item{kind, std::move(points), paletteColor(colour).color, width, text, {}};
    }
    static std::vector<Drawn> scene() {
        std::vector<QPointF> wave, loop;
        for (int i = 0; i <= 120; ++i)
            wave.emplace_back(120 + i * 3.5, 560 + 40 * std::sin(i / 9.0) - i * 0.6);
        for (int i = 0; i <= 80; ++i)
            loop.emplace_back(930 + 70 * std::cos(i / 12.0) + i * 1.5,
                              520 + 45 * std::sin(i / 12.0));
        return {
            {item(Tool::highlighter, 1, 5, {{150, 230}, {560, 226}})},
            {item(Tool::highlighter, 2, 5, {{150, 300}, {420, 302}, {430, 303}})},
            {item(Tool::rect, 0, 4, {{610, 180}, {1130, 430}})},
            {item(Tool::ellipse, 3, 6, {{140, 395}, {520, 470}})},
            {item(Tool::arrow, 0, 5, {{660, 620}, {830, 460}})},
            {item(Tool::arrow, 4, 3, {{1180, 640}, {1040, 600}})},
            {item(Tool::ellipse, 1, 4, {{880, 560}, {1230, 700}}), false, 0.45}, // fading
            {item(Tool::pen, 2, 4, wave)},
            {item(Tool::pen, 5, 8, loop)},
            {item(Tool::pen, 1, 10, {{1190, 200}, {1190, 200}})},
            {item(Tool::text, 4, 30, {{640, 240}}, QStringLiteral("Quarterly numbers"))},
            {item(Tool::text, 1, 24, {{660, 330}}, QStringLiteral("up 12% ")), true},
            {item(Tool::text, 0, 36, {{140, 650}}, QStringLiteral("Look here"))},
        };
    }

private Q_SLOTS:
    void everyKindPaintsWithinItsBounds_data() {
        QTest::addColumn<qreal>("dpr");
        for (const qreal dpr : {1.0, 1.5, 2.0})
            QTest::addRow("%gx", dpr) << dpr;
    }
    void everyKindPaintsWithinItsBounds() {
        QFETCH(qreal, dpr);
        for (const Drawn& drawn : scene()) {
            const QRectF bounds = Renderer::itemBounds(drawn.item, drawn.editing);
            Canvas whole(bounds.size() + QSizeF(40, 40), dpr, bounds.topLeft() - QPointF(20, 20));
            whole.paint([&](QPainter& p) { Renderer::draw(p, drawn.item, 0.8, drawn.editing); });
            const QRectF ink = whole.inkBox();
            const qreal slack = drawn.item.kind == Tool::text ? drawn.item.width : 2.5;
            QVERIFY2(!ink.isEmpty() && bounds.contains(ink) &&
                         ink.adjusted(-slack, -slack, slack, slack).contains(bounds),
                     describe(ink) + describe(bounds));
            // An area whose left edge cuts through the leftmost ink.
            const QRectF area(bounds.left() + drawn.item.width + 2, bounds.top(), 9,
                              bounds.height());
            Canvas part(whole.image.size() / dpr, dpr, whole.origin);
            part.paint([&](QPainter& p) {
                p.setClipRect(area);
                Renderer::drawWithin(p, drawn.item, 0.8, drawn.editing, area);
            });
            const QRect inside =
                QRectF((area.topLeft() - whole.origin) * dpr, area.size() * dpr).toAlignedRect();
            QVERIFY2(part.image.copy(inside.adjusted(2, 2, -2, -2)) ==
                         whole.image.copy(inside.adjusted(2, 2, -2, -2)),
                     describe(area));
        }
    }

    void writesTheSamplePicture() {
        const QString target = qEnvironmentVariable("QUILLERY_SAMPLE_PNG");
        if (target.isEmpty())
            QSKIP("QUILLERY_SAMPLE_PNG names no file to write");
        QImage picture(1280, 720, QImage::Format_ARGB32_Premultiplied);
        picture.fill(QColor(0x6b, 0x70, 0x78));
        QPainter painter(&picture);
        for (const auto& [frame, body] : {std::pair(QRect(100, 160, 500, 360), QColor(0xeeeeec)),
                                          {QRect(580, 140, 600, 320), QColor(0x25272b)}}) {
            painter.fillRect(frame, body);
            painter.fillRect(frame.adjusted(0, 0, 0, 28 - frame.height()), QColor(0x3a3d44));
        }
        painter.setPen(QColor(0x99, 0x99, 0x99));
        for (int y = 210; y < 500; y += 24)
            painter.drawLine(130, y, 560, y);
        for (const Drawn& drawn : scene())
            Renderer::draw(painter, drawn.item, drawn.alpha, drawn.editing);
        Renderer::drawHUD(painter, picture.rect(), Tool::highlighter, 1);
        QVERIFY2(picture.save(target, "PNG"), qPrintable(target));
    }
};

QTEST_MAIN(SampleSceneTest)
#include "tst_samplescene.moc"
