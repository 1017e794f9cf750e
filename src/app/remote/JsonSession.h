#pragma once

#include <QObject>

class QJsonObject;
class QLocalSocket;
class QTimer;

// A control connection that speaks JSON Lines: any number of requests, each
// answered by one line, until the client closes it or stays idle too long. After
// a watch request it carries events instead, with no idle limit; a watcher
// that doesn't read them is dropped once its queue is full, so that no client
// can hold up drawing or make the program grow.
class JsonSession : public QObject {
    Q_OBJECT
public:
    static constexpr qsizetype maxRequestBytes = 1024 * 1024;
    static constexpr qint64 maxQueuedBytes = 256 * 1024;
    static constexpr int idleTimeoutMs = 60 * 1000;
    // Requests carried out in one turn of the event loop.
    static constexpr int requestsPerTurn = 32;
    // How long a last line (an error, the overflow notice) waits to be read.
    static constexpr int farewellMs = 10 * 1000;

    // Takes over the socket (and lives as long as it does); deadline aborts
    // the connection when it fires.
    JsonSession(QLocalSocket* socket, QTimer* deadline);

private:
    void readRequests();
    // A line that can't end within the limit: the rest of it can't be told
    // from the next request, so this is the connection's last answer.
    void tooLong();
    void send(const QJsonObject& object);
    // Sends a last line and closes: the client gets it if it still reads.
    void finish(const QJsonObject& object);
    void watch();
    void event(QJsonObject object);

    QLocalSocket* socket;
    QTimer* deadline;
    bool watching = false;
    bool finished = false;
};
