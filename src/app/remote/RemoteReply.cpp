#include "RemoteReply.h"

QByteArray RemoteReply::encode() const {
    return QByteArray::number(exitCode) + '\n' + text.toUtf8();
}

RemoteReply RemoteReply::decode(const QByteArray& bytes) {
    const qsizetype newline = bytes.indexOf('\n');
    bool ok = false;
    const int code = bytes.left(newline).toInt(&ok);
    if (newline < 0 || !ok)
        return {1, QStringLiteral("Quillery sent an answer that could not be read.\n")};
    return {code, QString::fromUtf8(bytes.mid(newline + 1))};
}
