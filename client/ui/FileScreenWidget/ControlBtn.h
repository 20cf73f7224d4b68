// The floating control bar of the picture page: previous, next, rotate left
// and right, zoom in and out, stop. After previous or next both page buttons
// are locked for a second, so quick clicks do not pile up file changes.
// GUI thread only.
#pragma once

#include <QString>
#include <QWidget>

class QEvent;
class QTimer;

namespace qorquicomponents {

class SwitchButton;

class ControlBtn : public QWidget {
    Q_OBJECT

public:
    explicit ControlBtn(QWidget* parent = nullptr);

    void setDisable(int lastIndex, int currentIndex);
    void setZoomInBtnEnabled(bool enabled);
    void setZoomOutBtnEnabled(bool enabled);

    SwitchButton* lastButton() const { return m_lastBtn; }
    SwitchButton* nextButton() const { return m_nextBtn; }
    SwitchButton* rotateLeftButton() const { return m_rotateLeftBtn; }
    SwitchButton* rotateRightButton() const { return m_rotateRightBtn; }
    SwitchButton* zoomInButton() const { return m_zoomInBtn; }
    SwitchButton* zoomOutButton() const { return m_zoomOutBtn; }
    SwitchButton* stopButton() const { return m_stopBtn; }
    bool isPageLocked() const;

    static constexpr int kLockMs = 1000;

signals:
    void signalZoomInBtnClicked();
    void signalZoomOutBtnClicked();
    void signalRotate(bool clockwise);
    void signalNextBtnClicked();
    void signalLastBtnClicked();
    void signalStopScreen();
    void signalControlEnter();
    void signalControlLeave();
    void signalBtnEnter(QString text, int x, int y);
    void signalBtnLeave();

protected:
    void enterEvent(QEvent* event) override;
    void leaveEvent(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void lockPageButtons();
    void onLockTimeout();
    // Face and style of a page button from its shown/hidden state.
    void restyle(SwitchButton* button);

    SwitchButton* m_lastBtn;
    SwitchButton* m_nextBtn;
    SwitchButton* m_rotateLeftBtn;
    SwitchButton* m_rotateRightBtn;
    SwitchButton* m_zoomInBtn;
    SwitchButton* m_zoomOutBtn;
    SwitchButton* m_stopBtn;
    QTimer* m_lockTimer;
};

}  // namespace qorquicomponents
