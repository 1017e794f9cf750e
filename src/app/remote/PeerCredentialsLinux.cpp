#include "PeerCredentials.h"

#include <sys/socket.h>

std::optional<uid_t> PeerCredentials::peerUser(qintptr socketDescriptor) {
    struct ucred credentials {};
    socklen_t length = sizeof credentials;
    if (::getsockopt(int(socketDescriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return std::nullopt;
    return credentials.uid;
}
