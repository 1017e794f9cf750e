#include "RemoteClient.h"

#include "ControlChannel.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
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

    // Everything the server sends until it closes the connection, up to
    // `limit` bytes; it gets `timeoutMs` for each piece.
    QByteArray receiveAll(qsizetype limit, int timeoutMs) {
        QByteArray answer;
        char buffer[4096];
        while (answer.size() < limit) {
            pollfd waiting{fd, POLLIN, 0};
            const int ready = ::poll(&waiting, 1, timeoutMs);
            if (ready < 0 && errno == EINTR)
                continue;
            if (ready <= 0)
                break;
            const ssize_t n =
                ::recv(fd, buffer, qMin<qsizetype>(sizeof buffer, limit - answer.size()), 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            answer.append(buffer, n);
        }
        return answer;
    }

private:
    int fd;
    bool connected = false;
};

} // namespace

std::optional<RemoteReply> RemoteClient::send(const QString& request) {
    // A client never creates the directory: without it, nothing runs.
    if (!QFileInfo::exists(ControlChannel::directory()))
        return std::nullopt;
    QString error;
    if (!ControlChannel::checkDirectory(&error))
        return RemoteReply{1, error + QLatin1Char('\n')};
    Connection connection(QFile::encodeName(ControlChannel::clientSocketPath()));
    if (!connection.isConnected())
        return std::nullopt;
    connection.sendAll(request.toUtf8() + '\n');
    const QByteArray answer =
        connection.receiveAll(ControlChannel::maxReplyBytes, ControlChannel::timeoutMs);
    if (answer.isEmpty())
        return RemoteReply{
            1, QCoreApplication::translate("RemoteClient", "Quillery did not answer.\n")};
    return RemoteReply::decode(answer);
}
