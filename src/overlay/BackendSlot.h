#pragma once

#include "Fatal.h"

#include <QString>
#include <memory>

// The one backend of a kind that the loader installs at start-up; asking for
// it before then is a programming error.
template <typename Backend> class BackendSlot {
public:
    static Backend& current(const char* kind) {
        if (!slot())
            fatalError(QStringLiteral("no %1 was chosen at start-up").arg(QLatin1String(kind)));
        return *slot();
    }
    static void install(std::unique_ptr<Backend> backend) { slot() = std::move(backend); }

private:
    static std::unique_ptr<Backend>& slot() {
        static std::unique_ptr<Backend> installed;
        return installed;
    }
};
