#pragma once

#include <QLockFile>
#include <QString>
#include <memory>

// One Quillery per user session: the first process to take the instance lock is
// the instance; every later one only talks to it.
class SingleInstance {
public:
    // unavailable: the control directory can't be used safely (error says why);
    // Quillery may run, but without remote control.
    enum class Role { primary, secondary, unavailable };

    // Takes the lock if nobody holds it.
    Role acquire(QString* error);

private:
    std::unique_ptr<QLockFile> lock;
};
