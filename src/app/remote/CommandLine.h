#pragma once

#include <QString>
#include <QStringList>

// What the command line asks for: run (and become the instance, or wake the
// running one), print help or the version, or send one command to the
// running instance (a plain command or a JSON request), or follow its drawing.
struct CommandLine {
    enum class Action { run, help, version, remote, watch, error };

    Action action = Action::run;
    QString request; // for remote: the line sent to the running instance
    QString message; // for error: what was wrong

    static CommandLine parse(const QStringList& arguments);
    static QString helpText();
    static QString versionText();
};
