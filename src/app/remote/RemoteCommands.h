#pragma once

#include "RemoteReply.h"

#include <functional>

// Carries out one command line sent by another `quillery` process, by the same
// code paths as the keys and the tray menu.
class RemoteCommands {
public:
    std::function<void()> showWelcome;
    std::function<void()> quit;

    RemoteReply execute(const QString& request) const;

private:
    static QString status();
};
