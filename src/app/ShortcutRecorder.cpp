#include "ShortcutRecorder.h"

#include "HotKeyManager.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QWidget>

namespace {
constexpr quint32 requiredModifiers =
    HotKeyConfig::cmdKey | HotKeyConfig::optionKey | HotKeyConfig::controlKey;
}

ShortcutRecorder::ShortcutRecorder(QWidget* window)
    : QObject(window), window_(window), config_(HotKeyConfig::current()) {}

void ShortcutRecorder::startRecording() {
    recording = true;
    message_.clear();
    HotKeyManager::shared().unregister();
    if (auto* application = QCoreApplication::instance()) {
        application->installEventFilter(this);
        monitorInstalled = true;
    }
    Q_EMIT changed();
}

void ShortcutRecorder::stopRecording() {
    removeMonitor();
    if (recording) {
        recording = false;
        HotKeyManager::shared().registerHotKey(config_);
    }
    Q_EMIT changed();
}

void ShortcutRecorder::handle(const QKeyEvent& event) {
    if (event.key() == Qt::Key_Escape) {
        stopRecording();
        return;
    }
    const quint32 modifiers = HotKeyConfig::carbonModifiers(event.modifiers());
    if ((modifiers & requiredModifiers) == 0) {
        message_ = tr("Add Ctrl, Alt or Super to the shortcut.");
        Q_EMIT changed();
        return;
    }
    HotKeyConfig candidate;
    candidate.keyCode = HotKeyConfig::keyCodeFor(event);
    candidate.modifiers = modifiers;
    candidate.keyName = HotKeyConfig::keyNameFor(event);
    if (HotKeyManager::shared().registerHotKey(candidate)) {
        candidate.save();
        config_ = candidate;
        // Through the portal the desktop only hears a proposal, and decides.
        message_ = HotKeyManager::shared().isDecidedByDesktop()
                       ? tr("%1 proposed to the desktop.").arg(candidate.display())
                       : tr("Shortcut set to %1.").arg(candidate.display());
        removeMonitor();
        recording = false;
    } else {
        message_ = tr("%1 is unavailable. Try another.").arg(candidate.display());
    }
    Q_EMIT changed();
}

bool ShortcutRecorder::eventFilter(QObject* watched, QEvent* event) {
    // Another window in front: the shortcut in force comes back at once
    // rather than staying off while the user works elsewhere.
    if (watched == window_ && event->type() == QEvent::WindowDeactivate) {
        stopRecording();
        return false;
    }
    // Keys meant for the overlay, a menu or another window go where they were sent.
    if (!isForRecordingWindow(watched))
        return QObject::eventFilter(watched, event);
    if (event->type() == QEvent::ShortcutOverride) {
        // Claim the key so that no shortcut of any window acts on it.
        event->accept();
        return true;
    }
    if (event->type() != QEvent::KeyPress)
        return QObject::eventFilter(watched, event);
    const auto& keyEvent = static_cast<const QKeyEvent&>(*event);
    // A modifier on its own is the start of a combination, not the shortcut.
    if (!isModifierOnly(keyEvent.key()))
        handle(keyEvent);
    return true;
}

bool ShortcutRecorder::isForRecordingWindow(QObject* receiver) const {
    const auto* widget = qobject_cast<const QWidget*>(receiver);
    return widget && widget->window() == window_ && window_->isActiveWindow();
}

bool ShortcutRecorder::isModifierOnly(int key) {
    switch (key) {
    case Qt::Key_Control:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Shift:
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_Mode_switch:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_ScrollLock:
        return true;
    default:
        return false;
    }
}

void ShortcutRecorder::removeMonitor() {
    if (!monitorInstalled)
        return;
    if (auto* application = QCoreApplication::instance())
        application->removeEventFilter(this);
    monitorInstalled = false;
}
