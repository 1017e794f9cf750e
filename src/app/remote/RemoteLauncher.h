#pragma once

#include <QStringList>
#include <functional>

// Decides what this process is: the running instance (then `runInstance` starts
// the program and returns its exit status; withRemoteControl is false where the
// control socket can't be used safely), or a messenger to the one already
// running, or a one-shot answer (--help, --version, a wrong option).
class RemoteLauncher {
public:
    static int run(int argc, char** argv,
                   const std::function<int(int, char**, bool withRemoteControl)>& runInstance);
};
