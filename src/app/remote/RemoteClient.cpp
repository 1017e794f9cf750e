#include "RemoteClient.h"

#include "ControlChannel.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <cerrno>
#include <cstring>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// Plain POSIX sockets, so that a client needs no application object: the
// instance that asks a running one to show its welcome window may have to
// become the running one itself, and Qt allows one application object per
// process.
namespace {

class Connection {
public:
    explicit Connection(const QByteArray& path)
        : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (fd < 0 || path.size() >= qsizetype(sizeof address.sun_path))
            return;
        std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
        connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~Connection() {
        if (fd >= 0)
            ::close(fd);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool isConnected() const { return connected; }

    bool sendAll(const QByteArray& bytes) {
        for (qsizetype sent = 0; sent < bytes.size();) {
            const ssize_t n =
                ::send(fd, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (n < 0 && errno != EINTR)
                return false;
            sent += n > 0 ? n : 0;
        }
        return true;
    }

    // Everything the server sends until it closes the connection, or up to
    // the first newline when `oneLine`, up to `limit` bytes; it gets
    // `timeoutMs` for each piece (-1: as long as it takes).
    QByteArray receive(qsizetype limit, int timeoutMs, bool oneLine = false) {
        QByteArray answer;
        char buffer[4096];
        while (answer.size() < limit && !(oneLine && answer.contains('\n'))) {
            pollfd waiting{fd, POLLIN, 0};
            const int ready = ::poll(&waiting, 1, timeoutMs);
            if (ready < 0 && errno == EINTR)
                continue;
            if (ready <= 0)
                break;
            // One line only: what follows it stays in the socket for the next call.
            const ssize_t n =
                ::recv(fd, buffer, qMin<qsizetype>(sizeof buffer, limit - answer.size()),
                       oneLine ? MSG_PEEK : 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            const qsizetype newline = QByteArray::fromRawData(buffer, n).indexOf('\n');
            const qsizetype taken = oneLine && newline >= 0 ? newline + 1 : n;
            if (oneLine && ::recv(fd, buffer, size_t(taken), 0) != taken)
                break;
            answer.append(buffer, taken);
        }
        return answer;
    }

private:
    int fd;
    bool connected = false;
};

// The connection to the running instance, or null: with *failure set when
// something is wrong, without when no instance runs.
std::unique_ptr<Connection> connectToInstance(std::optional<RemoteReply>* failure) {
    // A client never creates the directory: without it, nothing runs.
    if (!QFileInfo::exists(ControlChannel::directory()))
        return nullptr;
    QString error;
    if (!ControlChannel::checkDirectory(&error)) {
        *failure = RemoteReply{1, error + QLatin1Char('\n')};
        return nullptr;
    }
    auto connection =
        std::make_unique<Connection>(QFile::encodeName(ControlChannel::clientSocketPath()));
    return connection->isConnected() ? std::move(connection) : nullptr;
}

RemoteReply noAnswer() {
    return {1, QCoreApplication::translate("RemoteClient", "Quillery did not answer.\n")};
}

// What a JSON reply means for a client that prints it: the new item's id, or
// the error.
RemoteReply fromJson(const QByteArray& line) {
    const QJsonObject reply = QJsonDocument::fromJson(line).object();
    if (reply.isEmpty())
        return noAnswer();
    if (!reply.value(QStringLiteral("ok")).toBool())
        return {2, reply.value(QStringLiteral("error")).toString() + QLatin1Char('\n')};
    const QJsonValue id = reply.value(QStringLiteral("id"));
    return {0, id.isDouble() ? QString::number(id.toInteger()) + QLatin1Char('\n') : QString()};
}

} // namespace

std::optional<RemoteReply> RemoteClient::send(const QString& request) {
    std::optional<RemoteReply> failure;
    const auto connection = connectToInstance(&failure);
    if (!connection)
        return failure;
    connection->sendAll(request.toUtf8() + '\n');
    // A JSON connection stays open for more requests: its answer is one line.
    const bool json = request.startsWith(QLatin1Char('{'));
    const QByteArray answer =
        connection->receive(ControlChannel::maxReplyBytes, ControlChannel::timeoutMs, json);
    if (answer.isEmpty())
        return noAnswer();
    return json ? fromJson(answer) : RemoteReply::decode(answer);
}

std::optional<RemoteReply>
RemoteClient::watch(const std::function<void(const QByteArray&)>& printEvent) {
    std::optional<RemoteReply> failure;
    const auto connection = connectToInstance(&failure);
    if (!connection)
        return failure;
    connection->sendAll(QByteArrayLiteral("{\"v\":1,\"cmd\":\"watch\"}\n"));
    // The answer is printed too: from then on, no event is missed.
    const QByteArray answer =
        connection->receive(ControlChannel::maxReplyBytes, ControlChannel::timeoutMs, true);
    if (const RemoteReply accepted = fromJson(answer); accepted.exitCode != 0)
        return accepted;
    printEvent(answer);
    // Events come whenever the presenter draws: no time limit between them.
    for (;;) {
        const QByteArray line = connection->receive(ControlChannel::maxReplyBytes, -1, true);
        if (!line.endsWith('\n'))
            return RemoteReply{0, QString()}; // Quillery quit
        printEvent(line);
        if (QJsonDocument::fromJson(line).object().value(QStringLiteral("event")) ==
            QLatin1String("overflow"))
            return RemoteReply{1, QString()};
    }
}
