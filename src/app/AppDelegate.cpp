#include "AppDelegate.h"

#include "Backends.h"
#include "DrawingCommands.h"
#include "DrawingStore.h"
#include "Fatal.h"
#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "LoginItem.h"
#include "OverlayController.h"
#include "OverlayHost.h"
#include "PencilIconEngine.h"
#include "Settings.h"
#include "SettingsWindow.h"
#include "SystemMemory.h"
#include "WelcomeWindow.h"
#include "WindowSystem.h"

#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QMenu>
#include <QMessageBox>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QThreadPool>
#include <QTimer>
#include <cmath>
#include <cstdio>

namespace {

constexpr int menuToggleDelayMs = 100;

// Centred on the screen the user is looking at (the one under the pointer).
void centreOnScreen(QWidget* window) {
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    window->move(area.center() - QPoint(window->width() / 2, window->height() / 2));
}

void bringToFront(QWidget* window) {
    window->show();
    window->raise();
    window->activateWindow();
}

// The whole number of seconds the menu shows as chosen; a value with no whole
// number at all can only come from a damaged settings file.
qint64 storedFadeSeconds() {
    const Settings& settings = Settings::shared();
    const double stored = settings.fadeSeconds();
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (!std::isfinite(stored) || stored >= limit || stored < -limit)
        fatalError(QStringLiteral("the value %1 of \"%2\" in %3 is not a number of seconds")
                       .arg(QString::number(stored), Settings::name(Settings::Key::fadeSeconds),
                            settings.fileName()));
    return static_cast<qint64>(stored);
}

} // namespace

AppDelegate::AppDelegate() : AppDelegate(Backends::loginItem()) {}

AppDelegate::AppDelegate(std::unique_ptr<LoginItem> loginItem) : loginItem(std::move(loginItem)) {}

AppDelegate::~AppDelegate() {
    delete statusItem_;
}

void AppDelegate::prepareApplication() {
    QApplication::setApplicationName(QStringLiteral("Quillery"));
    QApplication::setOrganizationName(QStringLiteral("Quillery"));
    QApplication::setApplicationVersion(QStringLiteral(QUILLERY_VERSION));
    // The desktop entry's name: Wayland desktops and portals match windows to it.
    QGuiApplication::setDesktopFileName(QStringLiteral("io.github.quillery.Quillery"));
    QApplication::setQuitOnLastWindowClosed(false);
    // Qt hands large image work to its global pool while drawing; an idle
    // pool thread would wake 30 s after its last job just to end itself.
    QThreadPool::globalInstance()->setExpiryTimeout(-1);
    SystemMemory::keepLargeBlocksApart();
    if (qobject_cast<QApplication*>(QCoreApplication::instance()))
        QApplication::setWindowIcon(PencilIconEngine::icon(
            PencilIconEngine::Variant::filled, QApplication::palette().color(QPalette::Highlight)));
}

void AppDelegate::applicationDidFinishLaunching() {
    requireApplication("Start-up");
    // No main window: closing Settings or the welcome window must not end the program.
    QApplication::setQuitOnLastWindowClosed(false);

    statusItem_ = new QSystemTrayIcon;
    menu_ = std::make_unique<QMenu>();
    buildMenu();
    // The autostart entry can change behind our back: read again on opening.
    connect(menu_.get(), &QMenu::aboutToShow, this, &AppDelegate::menuNeedsUpdate);
    connect(&Settings::shared(), &Settings::changed, this, &AppDelegate::menuNeedsUpdate);
    statusItem_->setContextMenu(menu_.get());
    updateToolTip();
    connect(&OverlayController::shared().host(), &OverlayHost::translucencyChanged, this,
            &AppDelegate::updateToolTip);
    // A left click opens the same menu: the icon has nothing else to do.
    connect(statusItem_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    menu_->popup(QCursor::pos());
            });
    updateIcon();
    showStatusItemWhenTrayExists();

    HotKeyManager::shared().onPress = [] { toggle(); };
    HotKeyManager::shared().onChange = [this] {
        menuNeedsUpdate();
        if (settingsWindow_)
            settingsWindow_->showRecorderState();
        if (welcomeWindow_)
            welcomeWindow_->setShortcut(shortcutInForce());
    };
    HotKeyManager::shared().registerHotKey(HotKeyConfig::current());

    connect(&OverlayController::shared().store(), &DrawingStore::drawingStateChanged, this, [this] {
        updateIcon();
        menuNeedsUpdate();
    });

    // Set before showing, so the window comes once even if it is closed unread.
    if (!Settings::shared().didShowWelcome()) {
        Settings::shared().setDidShowWelcome(true);
        showWelcome();
    }
}

void AppDelegate::showStatusItemWhenTrayExists() {
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        statusItem_->show();
        return;
    }
    std::fprintf(stderr, "%s\n",
                 qPrintable(tr("Quillery: there is no system tray on this desktop, so the "
                               "Quillery icon can't be shown yet. Quillery keeps running: %1 "
                               "starts drawing, and the icon appears as soon as a tray does.")
                                .arg(HotKeyConfig::current().display())));
    // A tray can come later (a panel that starts after us, or restarts): the
    // desktop says when, so nothing needs to look in the meantime.
    const auto showIfTrayCame = [this] {
        if (statusItem_ && !statusItem_->isVisible() && QSystemTrayIcon::isSystemTrayAvailable())
            statusItem_->show();
    };
    WindowSystem::current().watchSystemTray(showIfTrayCame);
    auto* notifierHost = new QDBusServiceWatcher(QStringLiteral("org.kde.StatusNotifierWatcher"),
                                                 QDBusConnection::sessionBus(),
                                                 QDBusServiceWatcher::WatchForRegistration, this);
    connect(notifierHost, &QDBusServiceWatcher::serviceRegistered, this, showIfTrayCame);
}

// Built once and kept up to date: a StatusNotifierItem host reads the menu
// over D-Bus whenever it likes, not only after asking to show it.
void AppDelegate::buildMenu() {
    toggleAction_ = menu_->addAction(QString(), this, &AppDelegate::toggleDrawing);
    menu_->addAction(tr("Clear All"), this, &AppDelegate::clearAll);
    menu_->addSeparator();
    fadeMenu_ = menu_->addMenu(tr("Fade after"));
    // Check marks, not the radio dots an exclusive action group would show
    // (and export to StatusNotifierItem hosts): the choice in force is marked.
    for (const int seconds : SettingsWindow::fadeChoices()) {
        QAction* choice = fadeMenu_->addAction(SettingsWindow::fadeChoiceTitle(seconds), this,
                                               [this, seconds] { setFade(seconds); });
        choice->setData(seconds);
        choice->setCheckable(true);
    }
    loginAction_ = menu_->addAction(tr("Launch at Login"), this, &AppDelegate::toggleLogin);
    loginAction_->setCheckable(true);
    menu_->addSeparator();
    menu_->addAction(tr("Settings…"), QKeySequence(Qt::CTRL | Qt::Key_Comma), this,
                     &AppDelegate::showSettings);
    menu_->addAction(tr("How to Draw…"), this, &AppDelegate::showWelcome);
    menu_->addSeparator();
    menu_->addAction(tr("Quit Quillery"), QKeySequence(Qt::CTRL | Qt::Key_Q), this,
                     &AppDelegate::quitApp);
    menuNeedsUpdate();
}

void AppDelegate::menuNeedsUpdate() {
    const QString toggleTitle = isDrawing() ? tr("Stop Drawing") : tr("Start Drawing");
    // "&" would otherwise underline the next letter.
    const QString shortcut = QString(shortcutInForce()).replace(u'&', QStringLiteral("&&"));
    toggleAction_->setText(
        shortcut.isEmpty() ? toggleTitle : toggleTitle + QStringLiteral("   (") + shortcut + u')');
    const qint64 fade = storedFadeSeconds();
    for (QAction* choice : fadeMenu_->actions())
        choice->setChecked(choice->data().toInt() == fade);
    loginAction_->setChecked(loginItem->isEnabled());
}

// The keys the desktop bound where it decides, none where it gives none.
QString AppDelegate::shortcutInForce() {
    const HotKeyManager& hotKey = HotKeyManager::shared();
    return hotKey.isDecidedByDesktop() ? hotKey.desktopTrigger()
           : hotKey.isUnavailable()    ? QString()
                                       : HotKeyConfig::current().display();
}

bool AppDelegate::isDrawing() {
    return OverlayController::shared().store().isDrawing();
}

void AppDelegate::toggle() {
    OverlayController::shared().toggle();
}

// Without a compositor ink looks different (marks cut to their pixels, the
// highlighter striped, no fading): the tooltip says why.
void AppDelegate::updateToolTip() {
    if (!statusItem_)
        return;
    statusItem_->setToolTip(OverlayController::shared().host().drawsTranslucent()
                                ? tr("Quillery")
                                : tr("Quillery: ink is drawn without translucency, as no "
                                     "compositor runs"));
}

void AppDelegate::updateIcon() {
    if (statusItem_)
        statusItem_->setIcon(PencilIconEngine::trayIcon(isDrawing()));
}

void AppDelegate::toggleDrawing() {
    // Later, not now: the menu must be gone before the overlay takes the screen.
    QTimer::singleShot(menuToggleDelayMs, this, [] { toggle(); });
}

void AppDelegate::clearAll() {
    OverlayController::shared().store().clear();
}

void AppDelegate::setFade(int seconds) {
    DrawingCommands::setFadeSeconds(DrawingStore::shared(), double(seconds));
}

void AppDelegate::toggleLogin() {
    const LoginItem::Failure failure =
        loginItem->isEnabled() ? loginItem->unregisterItem() : loginItem->registerItem();
    menuNeedsUpdate();
    if (!failure)
        return;
    requireApplication("The Launch at Login alert");
    QMessageBox alert(QMessageBox::Warning, tr("Quillery"), tr("Couldn't change Launch at Login"),
                      QMessageBox::Ok);
    alert.setInformativeText(*failure);
    // In front of whatever the user works in: the menu it answers is gone.
    QTimer::singleShot(0, &alert, [&alert] { bringToFront(&alert); });
    alert.exec();
}

void AppDelegate::showSettings() {
    if (!settingsWindow_) {
        settingsWindow_ = std::make_unique<SettingsWindow>();
        settingsWindow_->adjustSize();
        centreOnScreen(settingsWindow_.get());
    }
    bringToFront(settingsWindow_.get());
}

void AppDelegate::showWelcome() {
    requireApplication("The welcome window");
    if (welcomeWindow_)
        welcomeWindow_->close();
    const QString hotkey = shortcutInForce();
    const QPointer<AppDelegate> delegate(this);
    auto closeAction = [delegate] {
        if (delegate && delegate->welcomeWindow_)
            delegate->welcomeWindow_->close();
    };
    welcomeWindow_ = std::make_unique<WelcomeWindow>(hotkey, closeAction);
    centreOnScreen(welcomeWindow_.get());
    bringToFront(welcomeWindow_.get());
}

void AppDelegate::quitApp() {
    requireApplication("Quit");
    QCoreApplication::quit();
}

void AppDelegate::requireApplication(const char* step) const {
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        fatalError(QStringLiteral("%1 needs the application object, and there is none")
                       .arg(QLatin1String(step)));
}
