#include "SettingsWindow.h"

#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "Settings.h"
#include "ShortcutRecorder.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
constexpr int windowWidth = 400;
constexpr int padding = 22;
constexpr int spacing = 16;
constexpr int shortcutButtonMinimumWidth = 150;
} // namespace

const QList<int>& SettingsWindow::fadeChoices() {
    static const QList<int> choices{0, 2, 4, 8, 15};
    return choices;
}

QString SettingsWindow::fadeChoiceTitle(int seconds) {
    if (seconds == 0)
        return tr("Never");
    return tr("%1 seconds").arg(seconds);
}

SettingsWindow::SettingsWindow(QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                          Qt::WindowCloseButtonHint),
      recorder_(new ShortcutRecorder(this)), shortcutButton_(new QPushButton(this)),
      caption(new QLabel(this)), fadeCombo(new QComboBox(this)),
      hintBarCheck(new QCheckBox(tr("Show shortcut hint bar while drawing"), this)) {
    setWindowTitle(tr("Quillery Settings"));

    auto* column = new QVBoxLayout(this);
    column->setSpacing(spacing);
    column->setContentsMargins(padding, padding, padding, padding);
    column->addLayout(makeShortcutRow());

    QFont captionFont = caption->font();
    captionFont.setPointSizeF(captionFont.pointSizeF() * 0.85);
    caption->setFont(captionFont);
    caption->setForegroundRole(QPalette::PlaceholderText);
    caption->setWordWrap(true);
    column->addWidget(caption);

    column->addLayout(makeFadeRow());
    column->addWidget(hintBarCheck);

    connect(recorder_, &ShortcutRecorder::changed, this, &SettingsWindow::showRecorderState);
    connect(fadeCombo, &QComboBox::activated, this, [this](int index) {
        Settings::shared().setFadeSeconds(fadeCombo->itemData(index).toDouble());
    });
    connect(hintBarCheck, &QCheckBox::toggled, this,
            [](bool checked) { Settings::shared().setHudVisible(checked); });
    // Changed elsewhere while open (tray menu, Tab while drawing, the file).
    connect(&Settings::shared(), &Settings::changed, this, [this](Settings::Key key) {
        if (key == Settings::Key::fadeSeconds || key == Settings::Key::hudVisible)
            showStoredValues();
    });

    setFixedWidth(windowWidth);
    showRecorderState();
    showStoredValues();
}

QLayout* SettingsWindow::makeShortcutRow() {
    auto* row = new QHBoxLayout;
    row->addWidget(new QLabel(tr("Drawing shortcut"), this), 0, Qt::AlignVCenter);
    row->addStretch(1);
    shortcutButton_->setMinimumWidth(shortcutButtonMinimumWidth);
    shortcutButton_->setAutoDefault(false);
    row->addWidget(shortcutButton_, 0, Qt::AlignVCenter);
    connect(shortcutButton_, &QPushButton::clicked, this, &SettingsWindow::shortcutButtonClicked);
    return row;
}

QLayout* SettingsWindow::makeFadeRow() {
    auto* row = new QHBoxLayout;
    auto* label = new QLabel(tr("Fade after"), this);
    label->setBuddy(fadeCombo);
    row->addWidget(label);
    for (const int seconds : fadeChoices())
        fadeCombo->addItem(fadeChoiceTitle(seconds), double(seconds));
    row->addWidget(fadeCombo, 1);
    return row;
}

void SettingsWindow::shortcutButtonClicked() {
    if (recorder_->isRecording())
        recorder_->stopRecording();
    else
        recorder_->startRecording();
}

void SettingsWindow::showRecorderState() {
    // A key named "&" is an ampersand, not a mnemonic.
    shortcutButton_->setText(recorder_->isRecording() ? tr("Press new shortcut…")
                                                      : recorder_->config().display().replace(
                                                            u'&', QStringLiteral("&&")));
    caption->setText(recorder_->message().isEmpty() ? shortcutHint() : recorder_->message());
    // The width is fixed; the height follows the caption, which may wrap.
    setFixedHeight(layout()->totalHeightForWidth(windowWidth));
}

// Where the desktop decides the shortcut (a Wayland portal), or gives none,
// the window says so instead of pretending that the keys are ours.
QString SettingsWindow::shortcutHint() const {
    const HotKeyManager& hotKey = HotKeyManager::shared();
    if (hotKey.isUnavailable())
        return tr("This desktop lets no program have a global shortcut: bind the command "
                  "quillery --toggle to a key in its keyboard settings.");
    if (hotKey.isDecidedByDesktop())
        return tr("The desktop binds the shortcut; this one is proposed to it. In force: %1. "
                  "Change it in the desktop's keyboard settings.")
            .arg(hotKey.describe(recorder_->config()));
    return tr("Use at least one of Ctrl, Alt or Super. Esc cancels.");
}

void SettingsWindow::showStoredValues() {
    // A stored delay that is none of the choices selects nothing.
    fadeCombo->setCurrentIndex(fadeCombo->findData(Settings::shared().fadeSeconds()));
    const QSignalBlocker blocker(hintBarCheck);
    hintBarCheck->setChecked(Settings::shared().hudVisible());
}

// A recording still under way would otherwise end in ~QWidget, as the window
// loses the front, and show its state in a window already half gone.
SettingsWindow::~SettingsWindow() {
    recorder_->disconnect(this);
    recorder_->stopRecording();
}

void SettingsWindow::showEvent(QShowEvent* event) {
    showStoredValues();
    showRecorderState();
    QWidget::showEvent(event);
}

void SettingsWindow::hideEvent(QHideEvent* event) {
    recorder_->stopRecording();
    QWidget::hideEvent(event);
}
