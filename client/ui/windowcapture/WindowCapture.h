// The window-system layer for window casting on X11 (EWMH): lists the
// top-level application windows, names them, grabs still images for the
// selection previews and answers the questions a window cast asks about one
// window. All calls share one display connection and must not overlap.
#pragma once

#include <QImage>
#include <QList>
#include <QSet>
#include <QString>

#include <cstdint>
#include <string>

namespace qorquicomponents {

struct WindowScreenPreviewInfo {
    QString name;
    std::uint64_t windowId = 0;
    QImage image;
    bool selected = false;
};

class WindowCapture {
public:
    WindowCapture();

    QList<std::uint64_t> getTopLevelWindows();
    QList<WindowScreenPreviewInfo> getPreviewInfo();
    QImage getImageAcordWinId(std::uint64_t window);
    std::string getWindowName(std::uint64_t window);
    std::string getWindowAtom(std::uint64_t window, const char* propertyName);
    bool ewmhIsSupported();
    bool isWindowDesktop(std::uint64_t window);
    long getWindowState(std::uint64_t window);
    bool isWindowValid(std::uint64_t window);
    bool isMinimized(std::uint64_t window);
    bool isFrontWindow(std::uint64_t window);
    void getWinPosAndSize(std::uint64_t window, int& width, int& height, int& x, int& y);
    void raiseWindow(std::uint64_t window);
    void restoreWindow(std::uint64_t window);

    // Titles that never appear in the preview list.
    const QSet<QString>& excludedTitles() const { return m_excludedTitles; }
    // False when no X display could be opened; every query then answers empty.
    bool hasDisplay() const;

private:
    QSet<QString> m_excludedTitles;
};

}  // namespace qorquicomponents
