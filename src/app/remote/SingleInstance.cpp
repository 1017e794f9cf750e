#include "SingleInstance.h"

#include "ControlChannel.h"

SingleInstance::Role SingleInstance::acquire(QString* error) {
    if (!ControlChannel::prepareDirectory(error))
        return Role::unavailable;
    lock = std::make_unique<QLockFile>(ControlChannel::lockPath());
    lock->setStaleLockTime(0); // held for the whole run; stale only if its process is gone
    if (lock->tryLock(0))
        return Role::primary;
    if (lock->error() == QLockFile::LockFailedError)
        return Role::secondary;
    *error = QStringLiteral("Couldn't use %1").arg(ControlChannel::lockPath());
    return Role::unavailable;
}
