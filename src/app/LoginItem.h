#pragma once

#include <QString>
#include <memory>
#include <optional>

// Whether Quillery starts when the user logs in, as the desktop records it.
// Quillery keeps no setting of its own: the desktop's record is the only truth.
class LoginItem {
public:
    // Why a change failed, in words for the user; nothing on success.
    using Failure = std::optional<QString>;

    virtual ~LoginItem() = default;

    virtual bool isEnabled() const = 0;
    virtual Failure registerItem() = 0;
    virtual Failure unregisterItem() = 0;
};
