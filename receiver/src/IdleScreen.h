// What the panel shows while nobody casts: its name, address and connect
// code (and passcode), and the PCs connected, each with a way to remove it.
#pragma once

#include <QLabel>
#include <QListWidget>
#include <QWidget>

#include "PanelService.h"

namespace receiver {

class IdleScreen : public QWidget {
    Q_OBJECT
public:
    explicit IdleScreen(const QString& panelName, QWidget* parent = nullptr);

    void setAddress(const QString& address);
    void setCode(const QString& code);
    void setPasscode(const QString& passcode);
    // Who gets in without the code, said in words under the code.
    void setAccess(zv::PanelAccess access);
    void addClient(const ClientInfo& client);
    void removeClient(qint64 id);

signals:
    void removeRequested(qint64 clientId);

private:
    void refreshDetails();

    QLabel* m_name;
    QLabel* m_code;
    QLabel* m_details;
    QLabel* m_clientsTitle;
    QListWidget* m_clients;
    QString m_address;
    QString m_passcode;
    zv::PanelAccess m_access = zv::PanelAccess::Approve;
};

}  // namespace receiver
