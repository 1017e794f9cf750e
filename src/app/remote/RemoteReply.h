#pragma once

#include <QString>

// What a command sent to the running instance answers: an exit status for the
// client and the text it prints (stdout when the status is 0, stderr otherwise).
struct RemoteReply {
    int exitCode = 0;
    QString text;

    QByteArray encode() const;
    static RemoteReply decode(const QByteArray& bytes);
};
