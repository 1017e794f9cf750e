#pragma once

#include "NotificationCenter.h"

// Counts the posts of one notification name while it lives.
class NotificationCounter {
public:
    explicit NotificationCounter(const QString& name)
        : token(NotificationCenter::defaultCenter().addObserver(name, [this] { ++count; })) {}
    ~NotificationCounter() { NotificationCenter::defaultCenter().removeObserver(token); }
    NotificationCounter(const NotificationCounter&) = delete;
    NotificationCounter& operator=(const NotificationCounter&) = delete;

    int take() {
        const int seen = count;
        count = 0;
        return seen;
    }

    int count = 0;

private:
    NotificationCenter::Token token;
};
