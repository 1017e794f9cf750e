#pragma once

#include <QString>

// Where the running instance listens for commands: a socket in a directory that
// only this user can enter ($XDG_RUNTIME_DIR/quillery, else /tmp/quillery-<uid>).
class ControlChannel {
public:
    static constexpr qsizetype maxRequestBytes = 1024;
    static constexpr qsizetype maxReplyBytes = 64 * 1024;
    static constexpr int timeoutMs = 2000;

    static QString directory();
    static QString socketPath();
    static QString lockPath();

    // Creates the directory with mode 0700 if needed. Fails, with a reason, when it
    // belongs to another user or others may enter it: then nobody else's socket
    // can be mistaken for ours and nobody else can reach ours.
    static bool prepareDirectory(QString* error);
    // The same checks without creating anything, for clients: a missing
    // directory means that no instance runs, and is no error.
    static bool checkDirectory(QString* error);
};
