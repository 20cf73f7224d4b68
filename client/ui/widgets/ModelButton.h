// The screen page's mode selector: a button that shows the chosen casting
// mode and opens a small popup (SelectItem) with one entry per mode. The
// popup closes when it loses the focus and tells the button which mode is
// checked. GUI thread only.
#pragma once

#include <QPushButton>
#include <QString>
#include <QWidget>

#include <string>

class QFocusEvent;
class QPaintEvent;
class QVBoxLayout;

namespace qorquicomponents {

// Casting modes as the mode button keeps them.
enum ClientScreenMode {
    CopyScreenMode = 1,      // the whole screen (mirror)
    ExtendedScreenMode = 2,  // a virtual second screen
    WindowScreenMode = 3,    // one window
};

// Runs a shell command through a pipe and returns everything it printed.
// Throws std::runtime_error("popen() failed!") when the pipe cannot be opened.
std::string execShell(const std::string& command);

class SelectItem : public QWidget {
    Q_OBJECT

public:
    explicit SelectItem(QWidget* parent = nullptr);

    // Checks the entry of a mode (1, 2 or 3).
    void setCurrentIndex(int mode);
    int currentIndex() const { return m_index; }
    // Shows or hides the entry of mode 1, 2 or 3; the popup grows or shrinks
    // by one entry either way (other modes change only the height).
    void setButtonShow(int mode, bool show);
    // A Wayland session cannot mirror the screen: the copy entry goes.
    void setWaylandMode();
    QPushButton* entry(int mode) const;
    // Opens at a global point and takes the focus.
    void popupAt(const QPoint& globalPos);

    static constexpr int kEntryHeight = 40;

signals:
    // The popup closed; carries the checked mode.
    void signalFocusOutIndex(int index);

protected:
    void focusOutEvent(QFocusEvent* event) override;

private:
    void finish();

    QPushButton* m_entries[3];
    int m_index = CopyScreenMode;
    int m_height;
};

class ModelButton : public QPushButton {
    Q_OBJECT

public:
    explicit ModelButton(QWidget* parent = nullptr);

    int getScreenMode() const { return m_mode; }
    // Selects a mode and shows its name.
    void setScreenMode(int mode);
    SelectItem* selectItem() const { return m_selectItem; }
    // The translated name shown for a mode.
    static QString modeName(int mode);

public slots:
    void onClicked();
    void onFocusOutIndex(int index);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    SelectItem* m_selectItem;
    int m_mode = CopyScreenMode;
};

}  // namespace qorquicomponents
