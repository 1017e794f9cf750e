#pragma once

#include <QDialog>
#include <functional>

class QLabel;
class QPushButton;

// A few lines on how to draw, with the shortcut in force (empty where the
// desktop gives none). "Got it" (or Return) runs the close action it was given.
class WelcomeWindow : public QDialog {
    Q_OBJECT
public:
    WelcomeWindow(const QString& hotkey, std::function<void()> onClose, QWidget* parent = nullptr);

    // Follows the desktop's answer, which may come while the window shows.
    void setShortcut(const QString& hotkey);
    QString introduction() const;
    QStringList instructions() const;
    QPushButton* gotItButton() const { return gotIt; }

private:
    QLayout* makeTitleRow();
    QLabel* makeWrappingLabel(const QString& text, const QFont& font);

    std::function<void()> onClose;
    QLabel* introductionLabel;
    QList<QLabel*> instructionLabels;
    QPushButton* gotIt;
};
