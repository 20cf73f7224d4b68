// Known screen content for casting tests: four colour blocks in the root
// window's quarters, and a tolerant colour comparison for decoded pictures.
#pragma once

#include <QColor>

#include <X11/Xlib.h>

#include <cstdlib>

namespace zvtest {

// Red, green, blue, white: top left, top right, bottom left, bottom right.
inline const QColor kBlocks[4] = {Qt::red, Qt::green, Qt::blue, Qt::white};

inline void paintBlocks(Display* display) {
    const int screen = DefaultScreen(display);
    const int width = DisplayWidth(display, screen), height = DisplayHeight(display, screen);
    const Window root = RootWindow(display, screen);
    GC gc = XCreateGC(display, root, 0, nullptr);
    for (int i = 0; i < 4; ++i) {
        XSetForeground(display, gc, kBlocks[i].rgb() & 0xFFFFFF);
        XFillRectangle(display, root, gc, (i % 2) * width / 2, (i / 2) * height / 2, width / 2, height / 2);
    }
    XFreeGC(display, gc);
    XSync(display, False);
}

// H.264 and colour conversion shift colours a little; a block stays near.
inline bool nearColour(const QColor& a, const QColor& b) {
    return std::abs(a.red() - b.red()) < 40 && std::abs(a.green() - b.green()) < 40 &&
           std::abs(a.blue() - b.blue()) < 40;
}

}  // namespace zvtest
