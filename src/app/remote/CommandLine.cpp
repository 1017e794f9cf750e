#include "CommandLine.h"

#include "JsonCommands.h"
#include "PaletteColor.h"
#include "Tool.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

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

QString unknownTool(const QString& name) {
    return tr("Unknown tool \"%1\"; choose one of: %2.")
        .arg(name, toolNames().join(QStringLiteral(", ")));
}

// --draw KIND X,Y ... as the JSON request it stands for; the running instance
// checks the values as it checks any script's.
CommandLine drawCommand(const QCommandLineParser& parser) {
    const QString kind = parser.value(QStringLiteral("draw"));
    if (!toolFromRawValue(kind))
        return failure(unknownTool(kind));
    QJsonObject request{{QStringLiteral("v"), JsonCommands::version},
                        {QStringLiteral("cmd"), QStringLiteral("draw")},
                        {QStringLiteral("kind"), kind}};
    QJsonArray points;
    for (const QString& argument : parser.positionalArguments()) {
        const QStringList xy = argument.split(u',');
        bool xOk = false;
        bool yOk = false;
        const double x = xy.value(0).toDouble(&xOk);
        const double y = xy.value(1).toDouble(&yOk);
        if (xy.size() != 2 || !xOk || !yOk)
            return failure(tr("A point is written X,Y, not \"%1\".").arg(argument));
        points.append(QJsonArray{x, y});
    }
    request[QStringLiteral("points")] = points;
    if (parser.isSet(QStringLiteral("color"))) {
        const QString value = parser.value(QStringLiteral("color"));
        bool ok = false;
        const int number = value.toInt(&ok);
        request[QStringLiteral("color")] = ok ? QJsonValue(number) : QJsonValue(value);
    }
    if (parser.isSet(QStringLiteral("width"))) {
        bool ok = false;
        const double width = parser.value(QStringLiteral("width")).toDouble(&ok);
        if (!ok)
            return failure(tr("The width must be a number, not \"%1\".")
                               .arg(parser.value(QStringLiteral("width"))));
        request[QStringLiteral("width")] = width;
    }
    if (parser.isSet(QStringLiteral("text")))
        request[QStringLiteral("text")] = parser.value(QStringLiteral("text"));
    return {CommandLine::Action::remote,
            QString::fromUtf8(QJsonDocument(request).toJson(QJsonDocument::Compact)),
            {}};
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
    parser.addOption({QStringLiteral("draw"), QString(), QStringLiteral("kind")});
    parser.addOption({QStringLiteral("width"), QString(), QStringLiteral("n")});
    parser.addOption({QStringLiteral("text"), QString(), QStringLiteral("text")});
    parser.addOption({QStringLiteral("watch"), QString()});
    if (!parser.parse(arguments))
        return failure(parser.errorText());
    const bool draw = parser.isSet(QStringLiteral("draw"));
    if (!draw && !parser.positionalArguments().isEmpty())
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
            return failure(unknownTool(name));
        requests << QStringLiteral("tool ") + name;
    }
    if (parser.isSet(QStringLiteral("watch")))
        requests << QStringLiteral("watch");
    if (draw) {
        if (!requests.isEmpty())
            return failure(tr("Give one command at a time."));
        return drawCommand(parser);
    }
    for (const char* option : {"width", "text"})
        if (parser.isSet(QLatin1String(option)))
            return failure(tr("--%1 goes with --draw.").arg(QLatin1String(option)));
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
    if (requests.first() == QLatin1String("watch"))
        return {Action::watch, {}, {}};
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
              "  --draw KIND X,Y [X,Y...] [--color N|#rrggbb] [--width N] [--text T]\n"
              "                  draw an item (pen, highlighter: any number of points;\n"
              "                  arrow, ellipse, rect: start and end; text: its anchor)\n"
              "                  in desktop coordinates; prints the item's id\n"
              "  --watch         print one JSON line per event (drawing started or\n"
              "                  stopped, item committed, removed or faded) until\n"
              "                  interrupted\n"
              "\n"
              "Scripts may also write JSON Lines to the control socket, one request\n"
              "per line, such as {\"v\":1,\"cmd\":\"draw\",\"kind\":\"rect\",\n"
              "\"points\":[[100,100],[400,300]]}; see quillery(1).\n"
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
