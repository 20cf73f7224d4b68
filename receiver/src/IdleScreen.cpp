#include "IdleScreen.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

#include "security/KeyId.h"

namespace receiver {

namespace {

QLabel* makeLabel(const QString& objectName, int pointSize, bool bold, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setObjectName(objectName);
    label->setAlignment(Qt::AlignCenter);
    QFont font = label->font();
    font.setPointSize(pointSize);
    font.setBold(bold);
    label->setFont(font);
    return label;
}

// The code is easier to read aloud and type in two groups: "7K3M 9Q2T".
QString grouped(const QString& code) {
    return code.size() == 8 ? code.left(4) + QLatin1Char(' ') + code.mid(4) : code;
}

}  // namespace

IdleScreen::IdleScreen(const QString& panelName, QWidget* parent)
    : QWidget(parent),
      m_name(makeLabel(QStringLiteral("panelName"), 34, true, this)),
      m_code(makeLabel(QStringLiteral("panelCode"), 64, true, this)),
      m_details(makeLabel(QStringLiteral("panelDetails"), 18, false, this)),
      m_clientsTitle(makeLabel(QStringLiteral("clientsTitle"), 16, true, this)),
      m_clients(new QListWidget(this)) {
    setObjectName(QStringLiteral("IdleScreen"));
    setWindowTitle(QStringLiteral("Zelvanor Receiver - %1").arg(panelName));
    setAttribute(Qt::WA_StyledBackground, true);
    setStyleSheet(QStringLiteral(
        "#IdleScreen { background: qlineargradient(x1:0, y1:0, x2:1, y2:1, stop:0 #0f2a4a, stop:1 #1b4f86); }"
        "QLabel { color: #ffffff; }"
        "#panelDetails, #clientsTitle { color: #c8d8ea; }"
        "#panelCode { letter-spacing: 6px; }"
        "QListWidget { background: rgba(255,255,255,20); border: none; border-radius: 10px; color: white; }"
        "QPushButton { background: #e5484d; color: white; border: none; border-radius: 6px; padding: 4px 14px; }"));
    m_name->setText(panelName);
    m_clientsTitle->setText(tr("Connected PCs"));
    m_clientsTitle->hide();
    m_clients->setObjectName(QStringLiteral("clientList"));
    m_clients->setFixedWidth(520);
    m_clients->setMaximumHeight(220);
    m_clients->hide();

    auto* layout = new QVBoxLayout(this);
    layout->addStretch(2);
    layout->addWidget(m_name);
    layout->addSpacing(16);
    layout->addWidget(m_code);
    layout->addWidget(m_details);
    layout->addStretch(1);
    layout->addWidget(m_clientsTitle);
    layout->addWidget(m_clients, 0, Qt::AlignHCenter);
    layout->addStretch(2);
    resize(1280, 720);
}

void IdleScreen::setAddress(const QString& address) {
    m_address = address;
    refreshDetails();
}

void IdleScreen::setCode(const QString& code) { m_code->setText(grouped(code)); }

void IdleScreen::setPasscode(const QString& passcode) {
    m_passcode = passcode;
    refreshDetails();
}

void IdleScreen::setAccess(zv::PanelAccess access) {
    m_access = access;
    refreshDetails();
}

void IdleScreen::refreshDetails() {
    QString text = tr("Enter the code above in Zelvanor on your PC");
    switch (m_access) {
    case zv::PanelAccess::Open: text += QStringLiteral("  ·  ") + tr("Access: open to every PC on this network"); break;
    case zv::PanelAccess::Approve: text += QStringLiteral("  ·  ") + tr("Access: PCs without the code are asked here"); break;
    case zv::PanelAccess::Code: text += QStringLiteral("  ·  ") + tr("Access: with the code only"); break;
    }
    if (!m_passcode.isEmpty()) text += QStringLiteral("  ·  ") + tr("Passcode: %1").arg(m_passcode);
    if (!m_address.isEmpty()) text += QStringLiteral("  ·  ") + m_address;
    m_details->setText(text);
}

void IdleScreen::addClient(const ClientInfo& client) {
    auto* item = new QListWidgetItem(m_clients);
    item->setData(Qt::UserRole, client.id);
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(12, 4, 12, 4);
    QString text = QStringLiteral("%1  (%2, key %3)").arg(client.host, client.address, zv::shortKeyId(client.key));
    if (!client.approved) text += QStringLiteral("  ") + tr("asks before each cast");
    auto* label = new QLabel(text, row);
    auto* remove = new QPushButton(tr("Remove"), row);
    remove->setObjectName(QStringLiteral("remove-%1").arg(client.id));
    layout->addWidget(label, 1);
    layout->addWidget(remove);
    item->setSizeHint(row->sizeHint());
    m_clients->setItemWidget(item, row);
    const qint64 id = client.id;
    connect(remove, &QPushButton::clicked, this, [this, id] { emit removeRequested(id); });
    m_clients->show();
    m_clientsTitle->show();
}

void IdleScreen::removeClient(qint64 id) {
    for (int i = 0; i < m_clients->count(); ++i) {
        if (m_clients->item(i)->data(Qt::UserRole).toLongLong() == id) delete m_clients->takeItem(i);
    }
    m_clients->setVisible(m_clients->count() > 0);
    m_clientsTitle->setVisible(m_clients->count() > 0);
}

}  // namespace receiver
