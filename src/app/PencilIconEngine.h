#pragma once

#include <QColor>
#include <QIcon>
#include <QIconEngine>
#include <QPainterPath>

// Quillery's own symbol, a pencil tip in a circle, painted from paths at
// whatever size is asked for, so it stays sharp on any tray and any scale.
class PencilIconEngine : public QIconEngine {
public:
    enum class Variant {
        outline, // drawing is off
        filled,  // drawing is on
    };

    // halo: a thin dark rim around the glyph, so that a light glyph still reads
    // on a light panel (tray backgrounds range from black to white).
    PencilIconEngine(Variant variant, QColor color, bool halo);

    static QIcon icon(Variant variant, QColor color, bool halo = false);
    // The tray's two icons: light glyph with a dark rim.
    static QIcon trayIcon(bool drawing);
    // The glyph as one filled path, in a 24 x 24 box.
    static QPainterPath glyph(Variant variant);

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override;
    // Transparent around the glyph (the default pixmap is not cleared).
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override;
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override;
    QIconEngine* clone() const override;
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override;
    QString key() const override;

private:
    Variant variant;
    QColor color;
    bool halo;
};
