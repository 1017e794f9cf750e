#include "CommandLine.h"

#include "PaletteColor.h"
#include "Tool.h"

#include <QCommandLineParser>
#include <QCoreApplication>

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("CommandLine", text);
}

const QStringList plainCommands = {QStringLiteral("toggle"), QStringLiteral("start"),
                                   QStringLiteral("stop"),   QStringLiteral("clear"),
                                   QStringLiteral("undo"),   QStringLiteral("status"),
                                   QStringLiteral("quit")};

QStringList toolNames() {
    QStringList names;
    for (Tool tool : allTools)
        names << rawValue(tool);
    return names;
}

CommandLine failure(const QString& message) {
    CommandLine result;
    result.action = CommandLine::Action::error;
    result.message = message;
    return result;
}

} // namespace

CommandLine CommandLine::parse(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    parser.addOption({{QStringLiteral("h"), QStringLiteral("help")}, QString()});
    parser.addOption({{QStringLiteral("v"), QStringLiteral("version")}, QString()});
    for (const QString& command : plainCommands)
        parser.addOption({command, QString()});
    parser.addOption({QStringLiteral("tool"), QString(), QStringLiteral("name")});
    parser.addOption({QStringLiteral("color"), QString(), QStringLiteral("n")});
    if (!parser.parse(arguments))
        return failure(parser.errorText());
    if (!parser.positionalArguments().isEmpty())
        return failure(tr("Unexpected argument \"%1\".").arg(parser.positionalArguments().first()));

    if (parser.isSet(QStringLiteral("help")))
        return {Action::help, {}, {}};
    if (parser.isSet(QStringLiteral("version")))
        return {Action::version, {}, {}};

    QStringList requests;
    for (const QString& command : plainCommands) {
        if (parser.isSet(command))
            requests << command;
    }
    if (parser.isSet(QStringLiteral("tool"))) {
        const QString name = parser.value(QStringLiteral("tool"));
        if (!toolFromRawValue(name))
            return failure(tr("Unknown tool \"%1\"; choose one of: %2.")
                               .arg(name, toolNames().join(QStringLiteral(", "))));
        requests << QStringLiteral("tool ") + name;
    }
    if (parser.isSet(QStringLiteral("color"))) {
        const QString value = parser.value(QStringLiteral("color"));
        bool ok = false;
        const int number = value.toInt(&ok);
        if (!ok || number < 1 || number > int(palette().size()))
            return failure(tr("The colour must be a number from 1 to %1, not \"%2\".")
                               .arg(palette().size())
                               .arg(value));
        requests << QStringLiteral("color %1").arg(number);
    }
    if (requests.size() > 1)
        return failure(tr("Give one command at a time."));
    if (requests.isEmpty())
        return {Action::run, {}, {}};
    return {Action::remote, requests.first(), {}};
}

QString CommandLine::helpText() {
    return tr("Usage: quillery [OPTION]\n"
              "Draw over everything on your screen. Without an option, starts Quillery\n"
              "(or shows the running one's welcome window).\n"
              "\n"
              "Commands for the running Quillery:\n"
              "  --toggle        start drawing, or stop if drawing\n"
              "  --start         start drawing\n"
              "  --stop          stop drawing\n"
              "  --clear         remove all drawings\n"
              "  --undo          remove the newest drawing\n"
              "  --tool NAME     choose a tool: pen, arrow, ellipse, rect, highlighter, text\n"
              "  --color N       choose a colour: 1 red, 2 yellow, 3 green, 4 blue, 5 white,\n"
              "                  6 black\n"
              "  --status        print the drawing state, one \"key: value\" per line\n"
              "  --quit          quit Quillery\n"
              "\n"
              "  -h, --help      show this help and exit\n"
              "  -v, --version   show the version and exit\n"
              "\n"
              "Environment:\n"
              "  QUILLERY_OVERLAY_HOST=wayland|x11  draw on Wayland layer-shell surfaces or\n"
              "                  on X11 windows; unset, Quillery picks what the desktop offers\n"
              "\n"
              "Exit status: 0 on success, 1 if Quillery is not running or failed,\n"
              "2 for a wrong option or command.\n");
}

QString CommandLine::versionText() {
    return QStringLiteral("quillery %1\n").arg(QStringLiteral(QUILLERY_VERSION));
}
