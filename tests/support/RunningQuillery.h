#pragma once

#include <QProcess>
#include <QRegularExpression>
#include <QSettings>

// The real program as a user runs it: its binary, its command line, and the
// settings file it follows.
namespace RunningQuillery {

inline QString binary() {
    return qEnvironmentVariable("QUILLERY_BINARY");
}

inline QByteArray output(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return process.readAllStandardOutput();
}

// Whether program ran and succeeded.
inline bool run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    return process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

inline bool command(const QString& option) {
    return run(binary(), {option});
}

// One line of `quillery --status`.
inline QString status(const QString& key) {
    const QRegularExpression line(QStringLiteral("^%1: (.*)$").arg(key),
                                  QRegularExpression::MultilineOption);
    return line.match(QString::fromUtf8(output(binary(), {QStringLiteral("--status")})))
        .captured(1);
}

inline void setSetting(const QString& key, const QVariant& value) {
    QSettings(qEnvironmentVariable("XDG_CONFIG_HOME") + "/Quillery/Quillery.conf",
              QSettings::IniFormat)
        .setValue(key, value);
}

} // namespace RunningQuillery
