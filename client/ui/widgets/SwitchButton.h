// The icon switches of the screen page (pause, sound, reverse control,
// window, snapshot): a checkable button, 40 pixels high, with a 32 x 32 icon
// whose picture follows the switch's style and state, and an optional caption
// right of the icon. GUI thread only.
#pragma once

#include <QMap>
#include <QPushButton>
#include <QString>

class QEvent;
class QLabel;

namespace qorquicomponents {

// Which switch a SwitchButton is.
enum ButtonStyle : int {
    PauseButtonStyle = 0,
    VoiceButtonStyle = 1,
    ReverseButtonStyle = 2,
    WindowButtonStyle = 3,
    SnapshotButtonStyle = 4,
};

// Looks a switch can be given through registStyle/setStyle.
enum ButtonStatus : int {
    ButtonNormal = 0,
    ButtonHover = 1,
    ButtonPressed = 2,
    ButtonDisabled = 3,
};

// Per-status look: the button's own style sheet and its tool tip.
struct UIData {
    QString styleSheet;
    QString toolTip;
};

class SwitchButton : public QPushButton {
    Q_OBJECT

public:
    explicit SwitchButton(QWidget* parent = nullptr);

    // Puts the icon at (16, 4) and sets its picture for the style and state.
    // Unknown styles change nothing.
    void setBackgroundImage(ButtonStyle style, bool on);
    // The icon's style sheet as last set (the picture of the table).
    QString iconStyleSheet() const;
    QLabel* iconLabel() const { return m_icon; }
    // The text right of the icon; the button grows to hold it.
    void setCaption(const QString& text);
    QString caption() const;
    QLabel* captionLabel() const { return m_caption; }

    // Keeps the look for a status; setStyle applies a kept look (an unknown
    // status changes nothing).
    void registStyle(ButtonStatus status, const UIData& data);
    void setStyle(ButtonStatus status);
    ButtonStatus currentStyle() const { return m_status; }

    // The picture for a style and state; empty for an unknown style.
    static QString imageStyleFor(ButtonStyle style, bool on);

    // Shows or hides the button's face without giving up its place: a hidden
    // face has the "Status" property "Hide" and takes no clicks.
    void setButtonShow(bool show);
    bool isButtonShow() const { return m_buttonShow; }

    static constexpr int kIconX = 16;
    static constexpr int kIconY = 4;
    static constexpr int kIconSize = 32;
    static constexpr int kCaptionGap = 4;

signals:
    // The mouse entered the button: its tool tip and the global point under
    // the button's centre, for a tip window.
    void signalEnterBtn(QString text, int x, int y);

protected:
    void enterEvent(QEvent* event) override;

private:
    QLabel* m_icon;
    QLabel* m_caption;
    QMap<int, UIData> m_styles;
    ButtonStatus m_status = ButtonNormal;
    bool m_buttonShow = true;
};

}  // namespace qorquicomponents
