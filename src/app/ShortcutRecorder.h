#pragma once

#include "HotKeyConfig.h"

#include <QObject>
#include <QString>

class QKeyEvent;

// Records a new global shortcut from the next key press. While it waits, the
// global shortcut is off (so pressing the present one is heard here), and every
// key press in the application is consumed.
class ShortcutRecorder : public QObject {
    Q_OBJECT
public:
    explicit ShortcutRecorder(QObject* parent = nullptr);

    // The shortcut in force as far as this recorder knows.
    const HotKeyConfig& config() const { return config_; }
    bool isRecording() const { return recording; }
    // The last message; empty means "show the hint".
    const QString& message() const { return message_; }

    void startRecording();
    // Ends a recording and puts the shortcut that was in force back.
    void stopRecording();
    void handle(const QKeyEvent& event);

Q_SIGNALS:
    void changed();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    static bool isModifierOnly(int key);
    void removeMonitor();

    HotKeyConfig config_;
    bool recording = false;
    bool monitorInstalled = false;
    QString message_;
};
