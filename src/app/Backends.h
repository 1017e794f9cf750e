#pragma once

#include <memory>

class LoginItem;

// The one place that picks the platform's side of everything, once, right
// after the application object exists: the window system, the global
// shortcut, the overlay host and the login item. Each is an interface with
// one implementation per platform and a null one.
class Backends {
public:
    static void load();
    static std::unique_ptr<LoginItem> loginItem();
};
