// Remote input on X11 while the PC casts: the panel's touches and mouse
// actions arrive in panel units (0..65535 across the shown area) and are
// injected with XTest; the PC's pointer is reported back in the same units.
// The functions are called on the casting library's threads (and init/uninit
// on the GUI thread); one X connection, opened by initReverseControl, serves
// them all under one lock.
#pragma once

#include <QPoint>
#include <QRect>

#include <string>

class ScreenControl {
public:
    // Opens (or re-opens) the X connection on the default display.
    static bool initReverseControl();
    static void unInitReverseControl();
    static bool hasDisplay();

    // The X window whose contents are cast, 0 for the whole screen.
    static void setScreenWindowHWND(unsigned long window);
    static unsigned long getScreenWindowHWND();

    // Width and height of screen 0; left as they are without a connection.
    static void setScreenResolutionInfo(int& width, int& height);

    // Injects one action of the panel at (x, y) in panel units.
    static void linuxReverseControl(int x, int y, const std::string& type);
    // The pointer in panel units, with the screen size used for it.
    static void getMousePosition(int& x, int& y, int& width, int& height);

    // The arithmetic of the two directions, without X.
    // Whole screen: panel units to screen pixels.
    static QPoint mapWholeScreen(int x, int y, int screenWidth, int screenHeight);
    // The zoom of a window cast: how many times the window is enlarged on the
    // panel, at least 1 and a whole number.
    static double windowZoom(int screenWidth, int screenHeight, int windowWidth, int windowHeight);
    // Window cast: panel units to screen pixels for a window at window
    // (left, top, width, height).
    static QPoint mapWindow(int x, int y, int screenWidth, int screenHeight, const QRect& window);
    // Outbound: a screen pixel inside the window to panel units; false (and
    // the outputs untouched) outside the window.
    static bool windowPointToPanel(int cx, int cy, int screenWidth, int screenHeight, const QRect& window, int& x,
                                   int& y);

    // Wheel gestures: one notch per five wheel events, upwards when the
    // pointer went down the screen. Returns 4 (up), 5 (down) or 0 (none yet).
    static int wheelStep(int y);
    static void resetWheel();
};
