#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

class LoginItem;
class QAction;
class QMenu;
class QSystemTrayIcon;
class QTimer;
class SettingsWindow;
class WelcomeWindow;

// The application shell: the tray icon and its menu, the Settings and welcome
// windows, launch at login, and the start-up that wires them to the drawing.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    AppDelegate();
    // For another way of launching at login than this desktop's own.
    explicit AppDelegate(std::unique_ptr<LoginItem> loginItem);
    ~AppDelegate() override;

    // Names and policies the application needs before anything else runs.
    static void prepareApplication();
    // Start-up, once the application object exists.
    void applicationDidFinishLaunching();

    // Brings the menu's titles and check marks up to date with the present state.
    void menuNeedsUpdate();
    void updateIcon();
    void updateToolTip();
    void toggleDrawing();
    void clearAll();
    void setFade(int seconds);
    void toggleLogin();
    void showSettings();
    void showWelcome();
    void quitApp();

    QSystemTrayIcon* statusItem() const { return statusItem_; }
    QMenu* menu() const { return menu_.get(); }
    SettingsWindow* settingsWindow() const { return settingsWindow_.get(); }
    WelcomeWindow* welcomeWindow() const { return welcomeWindow_.get(); }

private:
    static bool isDrawing();
    static QString shortcutInForce();
    static void toggle();
    void buildMenu();
    void showStatusItemWhenTrayExists();
    void requireApplication(const char* step) const;

    std::unique_ptr<LoginItem> loginItem;
    QSystemTrayIcon* statusItem_ = nullptr;
    std::unique_ptr<QMenu> menu_;
    QAction* toggleAction_ = nullptr;
    QMenu* fadeMenu_ = nullptr;
    QAction* loginAction_ = nullptr;
    std::unique_ptr<SettingsWindow> settingsWindow_;
    std::unique_ptr<WelcomeWindow> welcomeWindow_;
};
