#include "JsonSession.h"

#include "DrawingStore.h"
#include "JsonCommands.h"
#include "OverlayController.h"

#include <QJsonDocument>
#include <QLocalSocket>
#include <QTimer>

JsonSession::JsonSession(QLocalSocket* socket, QTimer* deadline)
    : QObject(socket), socket(socket), deadline(deadline) {
    socket->setReadBufferSize(maxRequestBytes + 1);
    connect(socket, &QLocalSocket::readyRead, this, &JsonSession::readRequests);
    connect(socket, &QLocalSocket::bytesWritten, this, &JsonSession::readRequests);
    readRequests();
}

void JsonSession::readRequests() {
    // A client that sends requests without reading the answers waits for
    // them to leave first; one that sends many at once has them taken a few
    // at a time, so that the pen and the screen never wait for a script.
    for (int taken = 0; !watching && !finished && socket->canReadLine() &&
                        socket->bytesToWrite() <= maxQueuedBytes;
         ++taken) {
        if (taken == requestsPerTurn) {
            QTimer::singleShot(0, this, &JsonSession::readRequests);
            return;
        }
        QByteArray line = socket->readLine(maxRequestBytes + 1);
        if (!line.endsWith('\n'))
            return tooLong();
        line.chop(1);
        bool wantsEvents = false;
        send(JsonCommands::execute(line, &wantsEvents));
        if (wantsEvents)
            watch();
    }
    if (watching || finished)
        return;
    if (!socket->canReadLine() && socket->bytesAvailable() > maxRequestBytes)
        return tooLong();
    deadline->start(idleTimeoutMs);
}

void JsonSession::tooLong() {
    finish(JsonCommands::failure(tr("The request is longer than %1 bytes.").arg(maxRequestBytes)));
}

void JsonSession::send(const QJsonObject& object) {
    socket->write(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

void JsonSession::finish(const QJsonObject& object) {
    finished = true;
    watching = false;
    disconnect(socket, &QLocalSocket::readyRead, this, nullptr);
    send(object);
    socket->disconnectFromServer(); // after what is queued has been written
    deadline->start(farewellMs);
}

void JsonSession::watch() {
    watching = true;
    deadline->stop();
    DrawingStore& store = OverlayController::shared().store();
    connect(&store, &DrawingStore::drawingStateChanged, this, [this, &store] {
        event({{QStringLiteral("event"),
                store.isDrawing() ? QStringLiteral("started") : QStringLiteral("stopped")}});
    });
    connect(&store, &DrawingStore::itemCommitted, this, [this, &store](quint64 id) {
        // The newest item, unless something committed after it in the meantime.
        for (auto item = store.items().rbegin(); item != store.items().rend(); ++item)
            if (item->id == id) {
                QJsonObject described = JsonCommands::describe(*item);
                described[QStringLiteral("event")] = QStringLiteral("committed");
                return event(described);
            }
    });
    connect(&store, &DrawingStore::itemRemoved, this, [this](quint64 id) {
        event({{QStringLiteral("event"), QStringLiteral("removed")},
               {QStringLiteral("id"), qint64(id)}});
    });
    connect(&store, &DrawingStore::itemFaded, this, [this](quint64 id) {
        event({{QStringLiteral("event"), QStringLiteral("faded")},
               {QStringLiteral("id"), qint64(id)}});
    });
}

void JsonSession::event(QJsonObject object) {
    if (!watching)
        return;
    if (socket->bytesToWrite() > maxQueuedBytes) {
        disconnect(&OverlayController::shared().store(), nullptr, this, nullptr);
        object = {{QStringLiteral("event"), QStringLiteral("overflow")},
                  {QStringLiteral("error"),
                   tr("Events were not read fast enough; the watch has ended.")}};
        object[QStringLiteral("v")] = JsonCommands::version;
        finish(object);
        return;
    }
    object[QStringLiteral("v")] = JsonCommands::version;
    send(object);
}
