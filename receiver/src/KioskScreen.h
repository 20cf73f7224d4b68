// Full screen with or without a window manager. A panel that runs a bare X
// server (a kiosk) has nobody to honour a full-screen request: there the
// receiver's windows take the primary output's geometry themselves.
#pragma once

class QWidget;

namespace receiver {

// True when an EWMH window manager runs on the X server (its check window is
// named on the root window and names itself). False off X11 as well.
bool windowManagerRunning();

// Shows the window over the whole primary screen: a full-screen request to
// the window manager when one runs, else a frameless window of the primary
// output's size at its position, raised.
void showWholeScreen(QWidget* window);

}  // namespace receiver
