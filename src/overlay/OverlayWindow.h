#pragma once

#include <QWidget>

class DrawingStore;
class OverlayView;
class QScreen;

// One borderless, see-through window covering one screen exactly, above
// everything (panels and full-screen windows included, since it bypasses the
// window manager), on every desktop, with no taskbar or Alt-Tab entry. Its
// only content is an OverlayView. The controller configures and shows it.
class OverlayWindow : public QWidget {
    Q_OBJECT
public:
    OverlayWindow(QScreen* screen, DrawingStore& store);

    OverlayView* view() const { return view_; }

    // Clicks pass through to the windows underneath (an empty input shape).
    void setClickThrough(bool on);
    bool isClickThrough() const;

    void orderFront();
    void orderOut();

    // Only while drawing may an overlay take the keyboard.
    bool canBecomeKey() const;
    // Brings the window up and gives its view the keyboard, without a click.
    void makeKey();

protected:
    void changeEvent(QEvent* event) override;

private:
    void keyboardLost();

    DrawingStore& store;
    OverlayView* view_;
};
