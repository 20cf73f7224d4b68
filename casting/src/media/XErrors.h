// Xlib reports errors through one process-wide handler, whose default ends
// the process, and a lost connection through an I/O handler whose default
// calls exit(). Our own X connections (the screen capture's, the video
// sink's) register here: their errors are recorded for the thread that made
// the call and a lost connection returns; every other display keeps the
// handlers that were there before.
#pragma once

#include <X11/Xlib.h>

namespace zv::media {

void registerDisplay(Display* display);
void unregisterDisplay(Display* display);
// The last error on a registered display, for this thread (0: none).
int lastXError();

// Runs the queued requests and returns the first error they caused (0: none).
class ErrorTrap {
public:
    explicit ErrorTrap(Display* display);
    int check();

private:
    Display* m_display;
};

}  // namespace zv::media
