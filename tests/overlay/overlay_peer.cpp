// Another application for the X11 tests: one ordinary, window-managed window
// of a solid colour that reports on stdout, one line per event:
//   ready <window id> | press <global x> <global y> | key <text>
// Usage: overlay_peer X Y WIDTH HEIGHT #rrggbb
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QWidget>
#include <cstdio>

namespace {

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

class PeerWindow : public QWidget {
protected:
    void mousePressEvent(QMouseEvent* event) override {
        const QPoint at = event->globalPosition().toPoint();
        say(QStringLiteral("press %1 %2").arg(at.x()).arg(at.y()));
    }
    void keyPressEvent(QKeyEvent* event) override { say(QStringLiteral("key ") + event->text()); }
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 6)
        return 2;
    PeerWindow window;
    window.setPalette(QPalette(QColor(args[5])));
    window.setAutoFillBackground(true);
    window.setGeometry(args[1].toInt(), args[2].toInt(), args[3].toInt(), args[4].toInt());
    window.setFocusPolicy(Qt::StrongFocus);
    window.show();
    say(QStringLiteral("ready %1").arg(window.winId()));
    return app.exec();
}
