#include "NotificationCenter.h"

#include <algorithm>

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(const QString& name, QObject* context,
                                                          Observer observer) {
    const Token token = nextToken++;
    entries.push_back({token, name, context != nullptr, context, std::move(observer)});
    return token;
}

NotificationCenter::Token NotificationCenter::addObserver(const QString& name, Observer observer) {
    return addObserver(name, nullptr, std::move(observer));
}

void NotificationCenter::removeObserver(Token token) {
    std::erase_if(entries, [token](const Entry& entry) { return entry.token == token; });
}

bool NotificationCenter::isLive(Token token) const {
    return std::any_of(entries.begin(), entries.end(), [token](const Entry& entry) {
        return entry.token == token && (!entry.hasContext || entry.context);
    });
}

void NotificationCenter::post(const QString& name) {
    std::erase_if(entries, [](const Entry& entry) { return entry.hasContext && !entry.context; });
    // Observers may add or remove observers (windows are rebuilt while a post is
    // being delivered), so deliver to a snapshot and skip the ones removed meanwhile.
    std::vector<std::pair<Token, Observer>> snapshot;
    for (const Entry& entry : entries) {
        if (entry.name == name)
            snapshot.emplace_back(entry.token, entry.observer);
    }
    for (const auto& [token, observer] : snapshot) {
        if (isLive(token))
            observer();
    }
}
