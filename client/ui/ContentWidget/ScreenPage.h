// The screen page: casting the PC's screen or one window by connect code.
// This build has its code entry (same rules as the connect page, without the
// completion list) and the window-casting start, which connects first and
// then opens the window selection. GUI thread only, except
// setDeviceConnectCode (any thread).
#pragma once

#include <QMap>
#include <QString>
#include <QWidget>

#include <mutex>

#include "casting/SessionRecords.h"
#include "ui/ContentWidget/DeviceShowInfo.h"

class QLineEdit;
class QPushButton;

namespace Ui {
class ScreenPage;
}

namespace qorquicomponents {

using CodeStatus = CodeState;

enum CurrentCodeScreenStatus : int {
    ScreenIdle = 0,
    ScreenCopyCasting = 1,
    ScreenWindowCasting = 3,
};

class ScreenPage : public QWidget {
    Q_OBJECT

public:
    explicit ScreenPage(QWidget* parent = nullptr);
    ~ScreenPage() override;

    QLineEdit* getScreenCodeEdit() const;
    QPushButton* getStartScreenBtn() const;
    QString getScreenConnectCode() const;

    void setConnectCode(const QString& code);
    void setCodeListHide() {}
    void setDeviceConnectCode(const QString& deviceKey, const QString& second, const QString& code, CodeStatus state);
    void setBigScreenInfo(const tagDeviceInfo_& info);
    int getCurrentScreenStatus() const { return m_currentScreenStatus; }
    void setCurrentScreenStatus(int status) { m_currentScreenStatus = status; }
    // Opens the window selection once the session is connected.
    void showSelectWindow();
    int selectWindowRequests() const { return m_selectWindowRequests; }

    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    void signalWindowScreen(const QString& code);
    void signalShowLoading(bool show);
    void signalSelectWindow();

public slots:
    void onTextChanged(const QString& text);
    void onStartCodeScreenBtnClicked(bool skipServerCheck = false);

private:
    void showPlaceholderLook();
    void showInputLook();

    Ui::ScreenPage* ui;
    QWidget* m_parentWindow;
    std::mutex m_codeMapMutex;
    QMap<QString, QString> m_codeMap;
    int m_currentScreenStatus = ScreenIdle;
    int m_selectWindowRequests = 0;
    bool m_inTextChange = false;
    QString m_panelName;
};

}  // namespace qorquicomponents
