// The connect page: the connect-code entry with its completion list before a
// session, and the connected panel with the casting entries during one. It
// never calls the casting library; every action is a signal for the session
// controller. Widgets are touched on the GUI thread only; setDeviceConnectCode
// may be called from the discovery thread.
#pragma once

#include <QMap>
#include <QString>
#include <QWidget>

#include <mutex>

#include "casting/SessionRecords.h"
#include "ui/ContentWidget/DeviceShowInfo.h"

class QEvent;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QPushButton;

namespace Ui {
class ConnectPage;
}

namespace qorquicomponents {

class ConnectPage : public QWidget {
    Q_OBJECT

public:
    explicit ConnectPage(QWidget* parent = nullptr);
    ~ConnectPage() override;

    QLineEdit* getConnectCodeEdit() const;
    QPushButton* getStartConnectBtn() const;
    // The entry's text as it stands, the pale placeholder included.
    QString getConnectCode() const;
    // The translated placeholder that stands in the entry when it is empty.
    static QString placeholderText();
    // The tip for a 4-character passcode without a passcode server; the
    // screen and share pages show the same.
    static QString passcodeServerMissingText();

    void setConnectCode(const QString& code);
    void setCodeListHide();
    void setBigScreenInfo(const tagDeviceInfo_& info);
    // Discovery path (any thread). The second text is not used.
    void setDeviceConnectCode(const QString& deviceKey, const QString& second, const QString& code, CodeState state);
    void setConnectShow();
    void setNormalShow();
    void enableFileCastBtn(bool enable);

    bool eventFilter(QObject* watched, QEvent* event) override;

    QListWidget* getCodeList() const { return m_codeList; }
    int getListRow() const { return m_listRow; }
    bool isFileCastEnabled() const { return m_fileCastEnabled; }
    // Fixed geometry of the panel caption, in pixels.
    static constexpr int kNameMaxWidth = 364;
    static constexpr int kBadgeTop = 52;
    static constexpr int kBadgeGap = 12;

signals:
    void signalConnect(const QString& code);
    void signalStopconnect();
    void signalStartScreen(const QString& code);
    void signalReverseScreen(const QString& code);
    void signalFileScreen(const QString& first, const QString& second);
    void signalWindowScreen();
    void signalExpandScreen();
    void signalShowLoading(bool show);
    void signalConnectCode(const QString& code);

public slots:
    void onTextChanged(const QString& text);
    void onStartConnectBtnClicked();
    void onDisconnectBtnClicked();
    void onStartScreenBtnClicked();
    void onReserveShareBtnClicked();
    void onFileScreenBtnClicked();
    void onExpandScreenClicked();
    void onCompleteConnectCode(const QString& text);
    void onCodeListItemClicked(QListWidgetItem* item);
    void onCodeListItemEntered(QListWidgetItem* item);

private:
    void initUi();
    void initConnect();
    void applyLanguageLayout(bool connected);
    void showPlaceholderLook();
    void showInputLook();
    void setListKeyboardStyle();
    void setListMouseStyle();
    void hideCodeList();

    Ui::ConnectPage* ui;
    QWidget* m_parentWindow;
    QLabel* m_connectedLab;
    QListWidget* m_codeList;
    std::mutex m_codeMapMutex;
    QMap<QString, QString> m_codeMap;  // device key -> connect code
    int m_listRow = 0;
    bool m_listJustShown = false;
    bool m_fileCastEnabled = true;
    bool m_inTextChange = false;
};

}  // namespace qorquicomponents
