#pragma once

#include "DrawingStore.h"

inline constexpr auto drawingStoreChanged = &DrawingStore::drawingStoreChanged;

// Counts the emissions of one of a store's notices while it lives.
class NotificationCounter {
public:
    explicit NotificationCounter(void (DrawingStore::*notice)(),
                                 DrawingStore& store = DrawingStore::shared())
        : connection(QObject::connect(&store, notice, [this] { ++count; })) {}
    ~NotificationCounter() { QObject::disconnect(connection); }

    int take() {
        const int seen = count;
        count = 0;
        return seen;
    }

    int count = 0;

private:
    QMetaObject::Connection connection;
};
