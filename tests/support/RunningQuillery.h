#pragma once

#include <QProcess>
#include <QRegularExpression>
#include <QSettings>

// The real program as a user runs it: its binary, command line and settings file.
namespace RunningQuillery {

inline QString binary() {
    return qEnvironmentVariable("QUILLERY_BINARY");
}

// How a program ran to its end; exit code -1 if it crashed, hung or never started.
struct Finished {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};
inline Finished finish(const QString& program, const QStringList& arguments,
                       const QProcessEnvironment& from = QProcessEnvironment::systemEnvironment()) {
    QProcess process;
    process.setProcessEnvironment(from);
    process.start(program, arguments);
    if (!process.waitForFinished(15000) || process.exitStatus() != QProcess::NormalExit)
        return {-1, process.readAllStandardOutput(), process.readAllStandardError()};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

// What a program that succeeded wrote: empty, not null, if nothing; null if it failed.
inline QByteArray output(const QString& program, const QStringList& arguments) {
    const Finished finished = finish(program, arguments);
    return finished.exitCode != 0 ? QByteArray() : finished.out.isNull() ? "" : finished.out;
}

inline bool run(const QString& program, const QStringList& arguments) {
    return finish(program, arguments).exitCode == 0;
}

inline bool command(const QString& option) {
    return run(binary(), {option});
}

// The environment of another place the user runs it from: NAME=value set, NAME unset.
inline QProcessEnvironment environment(const QStringList& changes) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString& change : changes)
        if (change.contains(u'='))
            environment.insert(change.section(u'=', 0, 0), change.section(u'=', 1));
        else
            environment.remove(change);
    return environment;
}

// One line of `quillery --status`.
inline QString status(const QString& key,
                      const QProcessEnvironment& from = QProcessEnvironment::systemEnvironment()) {
    const QRegularExpression line(QStringLiteral("^%1: (.*)$").arg(key),
                                  QRegularExpression::MultilineOption);
    return line.match(QString::fromUtf8(finish(binary(), {"--status"}, from).out)).captured(1);
}

inline QString settingsFile() {
    return qEnvironmentVariable("XDG_CONFIG_HOME") + "/Quillery/Quillery.conf";
}
inline void setSetting(const QString& key, const QVariant& value) {
    QSettings(settingsFile(), QSettings::IniFormat).setValue(key, value);
}
inline QString setting(const QString& key) {
    return QSettings(settingsFile(), QSettings::IniFormat).value(key).toString();
}

} // namespace RunningQuillery
