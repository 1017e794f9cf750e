#pragma once

#include "LoginItem.h"

#include <QByteArray>

// Launch at login through the freedesktop autostart folder: the entry
// $XDG_CONFIG_HOME/autostart/quillery.desktop (~/.config when the variable is
// unset) starts the program at login unless it says Hidden=true.
class XdgAutostartLoginItem : public LoginItem {
public:
    // program: what the entry starts; empty means the running binary.
    explicit XdgAutostartLoginItem(QString program = {});

    bool isEnabled() const override;
    // Writes the entry atomically, creating the folder if needed.
    Failure registerItem() override;
    // Removes the entry; a missing entry is already the wanted state.
    Failure unregisterItem() override;

    // Read afresh each time, so a changed XDG_CONFIG_HOME applies at once.
    static QString entryPath();
    // program as the value of an Exec key: quoted as one argument, with the
    // characters the desktop entry format reserves escaped.
    static QString execValue(const QString& program);
    QByteArray entryContents() const;

private:
    QString program;
};
