#include "RemoteLauncher.h"

#include "CommandLine.h"
#include "RemoteClient.h"
#include "SingleInstance.h"

#include <QCoreApplication>
#include <QThread>
#include <cstdio>

namespace {

void print(FILE* stream, const QString& text) {
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

// Our own options; Qt's (-platform xcb, -display :1, -reverse ...) are left for
// QApplication, which takes them out of argv itself.
QStringList ownArgumentsOf(int argc, char** argv) {
    static const QStringList qtOptionsWithValue = {
        QStringLiteral("-platform"),        QStringLiteral("-platformpluginpath"),
        QStringLiteral("-platformtheme"),   QStringLiteral("-plugin"),
        QStringLiteral("-display"),         QStringLiteral("-style"),
        QStringLiteral("-stylesheet"),      QStringLiteral("-session"),
        QStringLiteral("-qwindowgeometry"), QStringLiteral("-qwindowicon"),
        QStringLiteral("-qwindowtitle")};
    static const QStringList qtFlags = {QStringLiteral("-reverse"), QStringLiteral("-nograb"),
                                        QStringLiteral("-dograb"), QStringLiteral("-sync")};
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (i > 0 && qtOptionsWithValue.contains(argument)) {
            ++i;
            continue;
        }
        if (i > 0 && qtFlags.contains(argument))
            continue;
        arguments << argument;
    }
    return arguments;
}

int printReply(const RemoteReply& reply) {
    print(reply.exitCode == 0 ? stdout : stderr, reply.text);
    return reply.exitCode;
}

// A command never starts Quillery and never touches the instance lock, so that
// it can't get in the way of an instance that is starting.
int sendCommand(int argc, char** argv, const QString& request) {
    QCoreApplication app(argc, argv);
    if (const auto reply = RemoteClient::send(request))
        return printReply(*reply);
    print(stderr, QStringLiteral("quillery: Quillery is not running.\n"));
    return 1;
}

int watch(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const auto end = RemoteClient::watch([](const QByteArray& line) {
        std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
        std::fflush(stdout);
    });
    if (end)
        return printReply(*end);
    print(stderr, QStringLiteral("quillery: Quillery is not running.\n"));
    return 1;
}

} // namespace

int RemoteLauncher::run(
    int argc, char** argv,
    const std::function<int(int, char**, bool withRemoteControl)>& runInstance) {
    const CommandLine commandLine = CommandLine::parse(ownArgumentsOf(argc, argv));
    switch (commandLine.action) {
    case CommandLine::Action::help:
        print(stdout, CommandLine::helpText());
        return 0;
    case CommandLine::Action::version:
        print(stdout, CommandLine::versionText());
        return 0;
    case CommandLine::Action::error:
        print(stderr, QStringLiteral("quillery: %1\nTry 'quillery --help' for more information.\n")
                          .arg(commandLine.message));
        return 2;
    case CommandLine::Action::watch:
        return watch(argc, argv);
    case CommandLine::Action::run:
    case CommandLine::Action::remote:
        break;
    }

    if (commandLine.action == CommandLine::Action::remote)
        return sendCommand(argc, argv, commandLine.request);

    // Either we take the instance lock, or the instance that holds it answers.
    // Both may take a moment while another copy is starting or quitting.
    SingleInstance instance;
    QString error;
    for (int attempt = 0; attempt < 30; ++attempt) {
        const SingleInstance::Role role = instance.acquire(&error);
        if (role == SingleInstance::Role::primary)
            return runInstance(argc, argv, true);
        if (role == SingleInstance::Role::unavailable) {
            print(stderr, QStringLiteral("quillery: remote control is off: %1\n").arg(error));
            return runInstance(argc, argv, false);
        }
        if (const auto reply = RemoteClient::send(QStringLiteral("welcome")))
            return printReply(*reply);
        QThread::msleep(100);
    }
    print(stderr, QStringLiteral("quillery: Quillery is running but does not answer.\n"));
    return 1;
}
