#pragma once

#include "LoginItem.h"

// For a system without a login-item service: never enabled, every change refused.
class NullLoginItem : public LoginItem {
public:
    bool isEnabled() const override { return false; }
    Failure registerItem() override;
    Failure unregisterItem() override;
};
