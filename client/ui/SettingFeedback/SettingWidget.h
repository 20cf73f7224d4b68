// The settings window: a column of page buttons beside a stacked widget with
// the basic page (host name, passcode server), the display page (which live
// figures the main window shows), the shortcut page (Ctrl+Alt+letter hot keys
// and the address they cast to) and the About, Feedback and Update pages.
// Loads every field from the settings store each time it is shown; the basic
// page is saved by OK and read back, the others at once. Five presses on the
// title within 3 s open the hidden settings window. GUI thread only.
#pragma once

#include <QWidget>

#include <functional>

#include "ui/SettingFeedback/GlobalHotkey.h"
#include "ui/TipWindows.h"
#include "ui/TitleBarDrag.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;

namespace qorquicomponents {

class BubbleTipWindows;

class SettingWidget : public QWidget {
    Q_OBJECT

public:
    // Which shortcut a hot key serves.
    enum ShortcutId : int {
        ShortcutStartOrStop = 1,
        ShortcutPause = 2,
    };

    explicit SettingWidget(QWidget* parent = nullptr);
    ~SettingWidget() override;

    // Takes the main window (the tips' anchor), registers the stored letters
    // and builds the pop-ups.
    void initData(QWidget* mainWidget);
    // Marks the hot key as registered and grabs Ctrl+Alt+key system-wide;
    // a refused grab marks the shortcut occupied. which: ShortcutId.
    void registerHotkey(int key, int which);
    void setShortcutOccupiedShow();
    int getSettingWidgetWidth() const { return width() + 16; }

    // The prompt the port field shows while empty.
    static QString portPromptText();

    // Widgets, for the controller and the tests.
    QLabel* titleLab() const { return m_titleLab; }
    QLineEdit* hostNameEdit() const { return m_hostNameEdit; }
    QLineEdit* serverIpEdit() const { return m_serverIpEdit; }
    QLineEdit* portEdit() const { return m_portEdit; }
    QPushButton* determineBtn() const { return m_determineBtn; }
    QPushButton* netTestBtn() const { return m_netTestBtn; }
    QCheckBox* displayCheckBox(int which) const;  // 1 bit rate .. 4 packet loss
    QWidget* highResolutionRow() const { return m_highResolutionRow; }
    BubbleTipWindows* bubbleTip() const { return m_bubble; }
    QLineEdit* shortcutIpEdit() const { return m_shortcutIpEdit; }
    QPushButton* shortcutIpBtn() const { return m_shortcutIpBtn; }
    QLineEdit* startOrStopEdit() const { return m_startOrStopEdit; }
    QLineEdit* pauseEdit() const { return m_pauseEdit; }
    QPushButton* shortcutResetBtn() const { return m_shortcutResetBtn; }
    QLabel* shortcutOccupiedLab() const { return m_occupiedLab; }
    QStackedWidget* stackedWidget() const { return m_stack; }
    bool isShortcutOccupied(int which) const;
    bool isHotkeyRegistered() const { return m_isRegisterHotkey; }
    GlobalHotkey* hotkeys() const { return m_hotkeys; }
    // The clock of the hidden gesture, in ms (tests replace it).
    void setClock(std::function<qint64()> nowMs) { m_nowMs = std::move(nowMs); }

signals:
    void signalChangeHostName(QString hostName);
    void signalChangeDisplayInfo(int which);
    // A global shortcut was pressed (ShortcutId).
    void signalShortcutActivated(int which);
    // The basic page's "Network test" button.
    void signalShowNetTest();

public slots:
    void onDetermineBtnClicked();
    void onPortText(const QString& text);
    void onLineEditTextChanged(const QString& text);
    void onStartOrStopScreenLineEditTextChanged(const QString& text);
    void onPauseScreenLineEditTextChanged(const QString& text);
    void onShortcutIPBtnClicked();
    void onShortcutResetBtnClicked();
    void onBasicSetBtnClicked();
    void onDisplayBtnClicked();
    void onShortcutBtnClicked();
    void onAboutBtnClicked();
    void onFeedbackBtnClicked();
    void onUpdateBtnClicked();
    void onShowTip(ErrorLevel level, const QString& text);

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void initUi();
    void initConnect();
    QWidget* buildBasicPage();
    QWidget* buildDisplayPage();
    QWidget* buildShortcutPage();
    void showTip(ErrorLevel level, const QString& text);
    void setPortColour(bool prompt);
    void onDisplayBoxClicked(int which, bool checked);
    void onLetterChanged(QLineEdit* edit, int which, bool* changing);
    bool filterTitlePress(QEvent* event);
    bool filterHostNameEvent(QEvent* event);
    bool filterLetterKey(QLineEdit* edit, QEvent* event);
    void showHighResolutionBubble(bool show);
    void openHideSetWindow();

    QWidget* m_mainWidget = nullptr;
    QLabel* m_titleLab = nullptr;
    QStackedWidget* m_stack = nullptr;
    QList<QPushButton*> m_pageButtons;
    QLineEdit* m_hostNameEdit = nullptr;
    QLineEdit* m_serverIpEdit = nullptr;
    QLineEdit* m_portEdit = nullptr;
    QPushButton* m_determineBtn = nullptr;
    QPushButton* m_netTestBtn = nullptr;
    QCheckBox* m_bitRateBox = nullptr;
    QCheckBox* m_delayBox = nullptr;
    QCheckBox* m_frameRateBox = nullptr;
    QCheckBox* m_lossBox = nullptr;
    QWidget* m_highResolutionRow = nullptr;
    QCheckBox* m_highResolutionBox = nullptr;
    QLineEdit* m_shortcutIpEdit = nullptr;
    QPushButton* m_shortcutIpBtn = nullptr;
    QLineEdit* m_startOrStopEdit = nullptr;
    QLineEdit* m_pauseEdit = nullptr;
    QPushButton* m_shortcutResetBtn = nullptr;
    QLabel* m_occupiedLab = nullptr;
    BubbleTipWindows* m_bubble = nullptr;
    GlobalHotkey* m_hotkeys = nullptr;
    TitleBarDrag m_drag{this};

    // Hidden gesture.
    int m_titleClickCount = 0;
    qint64 m_firstClickMs = 0;
    std::function<qint64()> m_nowMs;

    // Shortcuts.
    bool m_isChangingStartOrStop = false;
    bool m_isChangingPause = false;
    bool m_isStartOrStopOccupied = false;
    bool m_isPauseOccupied = false;
    bool m_isRegisterHotkey = false;
};

}  // namespace qorquicomponents
