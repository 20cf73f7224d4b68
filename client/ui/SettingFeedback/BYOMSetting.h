// The panel's camera and microphone offered to this PC as virtual devices
// ("BYOM"): the state both widgets show, the pop-up with its one switch, the
// floating button that folds itself away, and the guidance window.
// GUI thread only.
#pragma once

#include <QPoint>
#include <QWidget>

class QLabel;
class QPropertyAnimation;
class QPushButton;
class QTimer;

namespace qorquicomponents {

enum BYOMButtonStatus : int {
    BYOMNotSupport = 0,  // the panel or this PC cannot do it
    BYOMClose = 1,       // available, off
    BYOMOpen = 2,        // on
};

class BYOMSetting : public QWidget {
    Q_OBJECT

public:
    explicit BYOMSetting(QWidget* parent = nullptr);

    void setBYOMStatus(BYOMButtonStatus status);
    // The controller enables the switch again once the library answered.
    void setVirtualDeviceBtnEnableClicked(bool enabled);
    bool switchState() const { return m_switchOn; }
    QLabel* titleLab() const { return m_title; }
    QLabel* descriptionLab() const { return m_description; }
    QPushButton* switchBtn() const { return m_switch; }
    // Says why state 0 when this PC is the reason (no virtual camera host or sound server).
    void setHostAvailable(bool available) { m_hostAvailable = available; }

signals:
    void signalVirtualDeviceClicked(bool on);
    void signalClose();

public slots:
    void onVirtualDeviceEnabled();

protected:
    bool event(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QLabel* m_title;
    QLabel* m_description;
    QPushButton* m_switch;
    QPushButton* m_close;
    bool m_switchOn = false;
    bool m_hostAvailable = true;
};

class BYOMButton : public QWidget {
    Q_OBJECT

public:
    explicit BYOMButton(QWidget* parent = nullptr);

    void setIconStatus(BYOMButtonStatus status);
    void setLabText(const QString& text);
    void setBtnPoint(QPoint point) { m_anchor = point; }
    void startTimer();
    void startExpandAnimation();
    void startCollapseAnimation();
    void adjustFontSize();
    QLabel* iconLab() const { return m_icon; }
    QLabel* textLab() const { return m_text; }
    QTimer* foldTimer() const { return m_foldTimer; }

    static constexpr int kFoldIntervalMs = 10000;
    static constexpr int kAnimationMs = 1000;

signals:
    void signalClicked();

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    QLabel* m_icon;
    QLabel* m_text;
    QTimer* m_foldTimer;
    QPropertyAnimation* m_fold;
    QPropertyAnimation* m_unfold;
    QPoint m_anchor;
};

class BYOMUsageGuidance : public QWidget {
    Q_OBJECT

public:
    explicit BYOMUsageGuidance(QWidget* parent = nullptr);

signals:
    void signalCloseWindow();
};

}  // namespace qorquicomponents
