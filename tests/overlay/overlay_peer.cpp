// Another application for the overlay tests: one ordinary, window-managed
// window of a solid colour that reports what reaches it on stdout, one line
// per event:
//   ready <window id>
//   press <global x> <global y>
//   key <text>
//   focus in | focus out
// Usage: overlay_peer X Y WIDTH HEIGHT [#rrggbb]
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTextStream>
#include <QWidget>
#include <cstdio>

namespace {

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

class PeerWindow : public QWidget {
public:
    explicit PeerWindow(const QColor& color) {
        setAutoFillBackground(true);
        QPalette palette;
        palette.setColor(QPalette::Window, color);
        setPalette(palette);
        setWindowTitle(QStringLiteral("overlay peer"));
    }

protected:
    void mousePressEvent(QMouseEvent* event) override {
        const QPoint at = event->globalPosition().toPoint();
        say(QStringLiteral("press %1 %2").arg(at.x()).arg(at.y()));
    }
    void keyPressEvent(QKeyEvent* event) override { say(QStringLiteral("key ") + event->text()); }
    void focusInEvent(QFocusEvent*) override { say(QStringLiteral("focus in")); }
    void focusOutEvent(QFocusEvent*) override { say(QStringLiteral("focus out")); }
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 5) {
        std::fputs("usage: overlay_peer X Y WIDTH HEIGHT [#rrggbb]\n", stderr);
        return 2;
    }
    PeerWindow window(QColor(args.value(5, QStringLiteral("#20a040"))));
    window.setGeometry(args[1].toInt(), args[2].toInt(), args[3].toInt(), args[4].toInt());
    window.setFocusPolicy(Qt::StrongFocus);
    window.show();
    window.activateWindow();
    say(QStringLiteral("ready %1").arg(window.winId()));
    return app.exec();
}
