#include "ui/PopupWindow.h"

#include <QFile>

#include "ui/TipWindows.h"
#include "ui_PopupWindow.h"

namespace qorquicomponents {

PopupWindow* PopupWindow::getInstance() {
    static PopupWindow* instance = new PopupWindow();
    return instance;
}

PopupWindow::PopupWindow()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint), ui(new Ui::PopupWindow) {
    ui->setupUi(this);
    setObjectName(QStringLiteral("PopupWindow"));
    setAttribute(Qt::WA_StyledBackground, true);
    setFixedWidth(400);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/Dialogs.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));
    ui->iconLab->setStyleSheet(QStringLiteral("border-image: url(%1);").arg(TipWindows::iconPath(ErrorLevelInfo)));
    connect(ui->cancelBtn, &QPushButton::clicked, this, [this] {
        hide();
        emit signalCancelWaitAuth();
    });
}

PopupWindow::~PopupWindow() { delete ui; }

void PopupWindow::setMainProcessInfo(int processId, QWidget* mainWidget) {
    m_mainProcessId = processId;
    m_mainWidget = mainWidget;
}

QString PopupWindow::messageText() const { return ui->textLab->text(); }

void PopupWindow::setDisplayInfo(PopupWindowReason reason) {
    m_reason = reason;
    ui->titleLab->setText(tr("Waiting for permission"));
    if (reason == PopupReasonAuthorizationRequired) {
        ui->textLab->setText(tr("The screen has to allow this PC first. Please confirm on the screen."));
    } else {
        ui->textLab->setText(tr("The screen is asking its user to accept the request. Please wait."));
    }
    adjustSize();
    if (m_mainWidget != nullptr && m_mainWidget->isVisible()) {
        const QRect main = m_mainWidget->window()->frameGeometry();
        move(main.center() - rect().center());
    }
    show();
    raise();
}

}  // namespace qorquicomponents
