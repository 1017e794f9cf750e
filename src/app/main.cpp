#include "Defaults.h"

#include <QApplication>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillery"));
    QApplication::setOrganizationName(QStringLiteral("Quillery"));
    QApplication::setQuitOnLastWindowClosed(false);
    Defaults::registerDefaults(
        {{QStringLiteral("fadeSeconds"), 4.0}, {QStringLiteral("hudVisible"), true}});
    return app.exec();
}
