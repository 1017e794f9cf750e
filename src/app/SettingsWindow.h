#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class ShortcutRecorder;

// The Settings window: the drawing shortcut and its recorder, the fade delay and
// the hint bar. Made once and reused; closing only hides it.
class SettingsWindow : public QWidget {
    Q_OBJECT
public:
    // The fade delays offered, in seconds; 0 is "Never".
    static const QList<int>& fadeChoices();
    static QString fadeChoiceTitle(int seconds);

    explicit SettingsWindow(QWidget* parent = nullptr);
    ~SettingsWindow() override;

    ShortcutRecorder& recorder() const { return *recorder_; }
    QPushButton* shortcutButton() const { return shortcutButton_; }
    QLabel* captionLabel() const { return caption; }
    QComboBox* fadeComboBox() const { return fadeCombo; }
    QCheckBox* hintBarCheckBox() const { return hintBarCheck; }

    // The shortcut and what is said of it, as they stand (the desktop may
    // answer a request for the shortcut at any time).
    void showRecorderState();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QLayout* makeShortcutRow();
    QLayout* makeFadeRow();
    QString shortcutHint() const;
    // Shows what the settings hold now; they may have changed since the last look.
    void showStoredValues();
    void shortcutButtonClicked();

    ShortcutRecorder* recorder_;
    QPushButton* shortcutButton_;
    QLabel* caption;
    QComboBox* fadeCombo;
    QCheckBox* hintBarCheck;
};
