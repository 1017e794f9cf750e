#pragma once

#include "RemoteReply.h"

#include <optional>

// Sends one command to the running instance and waits for its answer.
class RemoteClient {
public:
    // std::nullopt when no instance answers on the control socket.
    static std::optional<RemoteReply> send(const QString& request);
};
