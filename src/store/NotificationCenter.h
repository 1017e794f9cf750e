#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <functional>
#include <vector>

// The drawing changed, or what the overlay shows changed: repaint.
inline const QString drawingStoreChanged = QStringLiteral("QuilleryStoreChanged");
// Drawing mode was switched on or off.
inline const QString drawingStateChanged = QStringLiteral("QuilleryStateChanged");

// A small synchronous notification centre: observers run at once, on the posting
// thread, in the order they were added, and learn only the name.
class NotificationCenter {
public:
    using Observer = std::function<void()>;
    using Token = quint64;

    static NotificationCenter& defaultCenter();

    // The observer is dropped automatically once `context` is destroyed.
    Token addObserver(const QString& name, QObject* context, Observer observer);
    Token addObserver(const QString& name, Observer observer);
    void removeObserver(Token token);
    void post(const QString& name);

private:
    struct Entry {
        Token token;
        QString name;
        bool hasContext;
        QPointer<QObject> context;
        Observer observer;
    };
    bool isLive(Token token) const;

    std::vector<Entry> entries;
    Token nextToken = 1;
};
