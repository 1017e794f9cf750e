#pragma once

#include <QtGlobal>
#include <optional>
#include <sys/types.h>

// The user id of the process at the other end of a connected local socket.
class PeerCredentials {
public:
    static std::optional<uid_t> peerUser(qintptr socketDescriptor);
};
