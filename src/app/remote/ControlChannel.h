#pragma once

#include <QString>

// Where the running instance listens for commands: a socket in a directory that
// only this user can enter ($XDG_RUNTIME_DIR/quillery, else /tmp/quillery-<uid>),
// one per graphical session, so that a user logged in twice (another seat, a
// remote desktop) gets an instance on each display.
class ControlChannel {
public:
    static constexpr qsizetype maxRequestBytes = 1024;
    static constexpr qsizetype maxReplyBytes = 64 * 1024;
    static constexpr int timeoutMs = 2000;

    static QString directory();
    // The session's name among the files: its Wayland socket if it has one, else
    // its X display, else its login session.
    static QString sessionKey();
    static QString socketPath();
    // The socket a client talks to: its own session's, or, from a shell with no
    // display, the only instance that runs.
    static QString clientSocketPath();
    static QString lockPath();

    // Creates the directory with mode 0700 if needed. Fails, with a reason, when it
    // belongs to another user or others may enter it: then nobody else's socket
    // can be mistaken for ours and nobody else can reach ours.
    static bool prepareDirectory(QString* error);
    // The same checks without creating anything, for clients: a missing
    // directory means that no instance runs, and is no error.
    static bool checkDirectory(QString* error);

private:
    static bool sessionHasDisplay();
};
