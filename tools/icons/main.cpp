// Writes Quillery's installed icons from the same paths the tray draws:
// the application icon as SVG and as PNGs at the given sizes, and the two
// tray states as SVG.
//
//   quillery_icons <output dir> <size>...

#include "PencilIconEngine.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QPainterPath>
#include <QTextStream>
#include <cstdio>

namespace {

const QColor appColor = QColor::fromRgbF(1.0f, 0.23f, 0.19f); // the first ink colour

QString svgPathData(const QPainterPath& path) {
    QString data;
    QTextStream out(&data);
    out.setRealNumberPrecision(4);
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        switch (element.type) {
        case QPainterPath::MoveToElement:
            out << 'M' << element.x << ' ' << element.y << ' ';
            break;
        case QPainterPath::LineToElement:
            out << 'L' << element.x << ' ' << element.y << ' ';
            break;
        case QPainterPath::CurveToElement: {
            const auto c1 = path.elementAt(i + 1);
            const auto c2 = path.elementAt(i + 2);
            out << 'C' << element.x << ' ' << element.y << ' ' << c1.x << ' ' << c1.y << ' ' << c2.x
                << ' ' << c2.y << ' ';
            i += 2;
            break;
        }
        case QPainterPath::CurveToDataElement:
            break;
        }
    }
    return data.trimmed();
}

bool writeFile(const QString& fileName, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(fileName).path());
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()) {
        std::fprintf(stderr, "quillery_icons: can't write %s: %s\n", qPrintable(fileName),
                     qPrintable(file.errorString()));
        return false;
    }
    return true;
}

QByteArray svg(PencilIconEngine::Variant variant, const QString& fill, bool halo) {
    const QPainterPath glyph = PencilIconEngine::glyph(variant);
    const QString d = svgPathData(glyph);
    const QString rule = glyph.fillRule() == Qt::WindingFill ? QStringLiteral("nonzero")
                                                             : QStringLiteral("evenodd");
    const QString rim = halo ? QStringLiteral(" stroke=\"#000\" stroke-opacity=\"0.59\" "
                                              "stroke-width=\"1.2\" paint-order=\"stroke\" "
                                              "stroke-linejoin=\"round\"")
                             : QString();
    return QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"24\" height=\"24\" "
                          "viewBox=\"0 0 24 24\">\n  <path fill=\"%1\" fill-rule=\"%2\"%3 "
                          "d=\"%4\"/>\n</svg>\n")
        .arg(fill, rule, rim, d)
        .toUtf8();
}

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: quillery_icons <output dir> <size>...\n");
        return 2;
    }
    const QString out = arguments[1];
    using Variant = PencilIconEngine::Variant;
    bool ok = writeFile(out + QStringLiteral("/scalable/apps/quillery.svg"),
                        svg(Variant::filled, appColor.name(), false)) &&
              writeFile(out + QStringLiteral("/scalable/status/quillery-idle.svg"),
                        svg(Variant::outline, QStringLiteral("#f4f4f4"), true)) &&
              writeFile(out + QStringLiteral("/scalable/status/quillery-drawing.svg"),
                        svg(Variant::filled, QStringLiteral("#f4f4f4"), true));
    const QIcon icon = PencilIconEngine::icon(Variant::filled, appColor);
    for (const QString& sizeText : arguments.mid(2)) {
        const int size = sizeText.toInt();
        const QString fileName = out + QStringLiteral("/%1x%1/apps/quillery.png").arg(size);
        QDir().mkpath(QFileInfo(fileName).path());
        ok = ok && size > 0 && icon.pixmap(QSize(size, size)).save(fileName);
    }
    return ok ? 0 : 1;
}
