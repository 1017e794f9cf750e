#include "DrawingStore.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QPainter>
#include <QtTest>

// Every kind of annotation and the hint bar over a fake desktop, the way an
// overlay composes them. With QUILLERY_SAMPLE_PNG set to a path, the picture is
// also written there (docs/sample.png is made this way).
class SampleSceneTest : public QObject {
    Q_OBJECT

    static constexpr QSize screenSize{1280, 720};

    struct Drawn {
        Item item;
        bool editing = false;
        qreal alpha = 1.0;
    };

    static Item item(Tool kind, int colorIndex, qreal width, std::vector<QPointF> points,
                     const QString& text = {}) {
        Item made;
        made.kind = kind;
        made.color = paletteColor(colorIndex).color;
        made.width = width;
        made.points = std::move(points);
        made.text = text;
        return made;
    }

    static std::vector<Drawn> scene() {
        std::vector<QPointF> wave;
        for (int i = 0; i <= 120; ++i)
            wave.emplace_back(120 + i * 3.5, 560 + 40 * std::sin(i / 9.0) - i * 0.6);
        std::vector<QPointF> loop;
        for (int i = 0; i <= 80; ++i)
            loop.emplace_back(930 + 70 * std::cos(i / 12.0) + i * 1.5,
                              520 + 45 * std::sin(i / 12.0));
        return {
            {item(Tool::highlighter, 1, 5, {{150, 230}, {560, 226}}), false},
            {item(Tool::highlighter, 2, 5, {{150, 300}, {420, 302}, {430, 303}}), false},
            {item(Tool::rect, 0, 4, {{610, 180}, {1130, 430}}), false},
            {item(Tool::ellipse, 3, 6, {{140, 395}, {520, 470}}), false},
            {item(Tool::arrow, 0, 5, {{660, 620}, {830, 460}}), false},
            {item(Tool::arrow, 4, 3, {{1180, 640}, {1040, 600}}), false},
            {item(Tool::ellipse, 1, 4, {{880, 560}, {1230, 700}}), false, 0.45}, // fading
            {item(Tool::pen, 2, 4, wave), false},
            {item(Tool::pen, 5, 8, loop), false},
            {item(Tool::pen, 1, 10, {{1190, 200}, {1190, 200}}), false},
            {item(Tool::text, 4, 30, {{640, 240}}, QStringLiteral("Quarterly numbers")), false},
            {item(Tool::text, 1, 24, {{660, 330}}, QStringLiteral("up 12% ")), true},
            {item(Tool::text, 0, 36, {{140, 650}}, QStringLiteral("Look here")), false},
        };
    }

    // A plain desktop with two windows, painted with nothing but QPainter.
    static void paintDesktop(QPainter& painter) {
        painter.fillRect(QRect(QPoint(), screenSize), QColor(0x6b, 0x70, 0x78));
        const auto window = [&](QRect frame, QColor body) {
            painter.fillRect(frame, body);
            painter.fillRect(QRect(frame.topLeft(), QSize(frame.width(), 28)),
                             QColor(0x3a, 0x3d, 0x44));
        };
        window(QRect(100, 160, 500, 360), QColor(0xee, 0xee, 0xec));
        window(QRect(580, 140, 600, 320), QColor(0x25, 0x27, 0x2b));
        painter.setPen(QColor(0x99, 0x99, 0x99));
        for (int y = 210; y < 500; y += 24)
            painter.drawLine(130, y, 560, y);
    }

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationName(QStringLiteral("Quillery")); }

    // On an opaque desktop every item shows, and nothing changes outside the
    // items' bounds and the hint bar: what a partial repaint relies on.
    void everyKindOverADesktop() {
        DrawingStore store;
        store.tool = Tool::highlighter;
        store.colorIndex = 1;
        QImage desktop(screenSize, QImage::Format_ARGB32_Premultiplied);
        QPainter onDesktop(&desktop);
        paintDesktop(onDesktop);
        onDesktop.end();

        QImage picture = desktop;
        QPainter painter(&picture);
        QRegion touched;
        for (const Drawn& drawn : scene()) {
            Renderer::draw(painter, drawn.item, drawn.alpha, drawn.editing);
            touched += Renderer::itemBounds(drawn.item, drawn.editing).toAlignedRect();
        }
        const QRectF screen{QPointF(), QSizeF(screenSize)};
        Renderer::drawHUD(painter, screen, store);
        touched += Renderer::hudRect(screen, store).toAlignedRect();
        painter.end();

        for (const Drawn& drawn : scene()) {
            const QRect bounds = Renderer::itemBounds(drawn.item, drawn.editing).toAlignedRect();
            QVERIFY(picture.copy(bounds) != desktop.copy(bounds));
        }
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x)
                if (!touched.contains(QPoint(x, y)))
                    QCOMPARE(picture.pixel(x, y), desktop.pixel(x, y));

        const QString target = qEnvironmentVariable("QUILLERY_SAMPLE_PNG");
        if (!target.isEmpty())
            QVERIFY2(picture.save(target, "PNG"), qPrintable(target));
    }
};

QTEST_MAIN(SampleSceneTest)
#include "tst_samplescene.moc"
