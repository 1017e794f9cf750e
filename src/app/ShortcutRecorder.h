#pragma once

#include "HotKeyConfig.h"

#include <QObject>
#include <QString>

class QKeyEvent;
class QWidget;

// Records a new global shortcut from the next key press in its window. While it
// waits, the global shortcut is off (so pressing the present one is heard here)
// and the window's key presses are consumed; keys sent to any other window are
// left alone, and the window losing the front ends the recording.
class ShortcutRecorder : public QObject {
    Q_OBJECT
public:
    explicit ShortcutRecorder(QWidget* window);

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
    bool isForRecordingWindow(QObject* receiver) const;
    static bool isModifierOnly(int key);
    void removeMonitor();

    QWidget* window_;
    HotKeyConfig config_;
    bool recording = false;
    bool monitorInstalled = false;
    QString message_;
};
