#include "ui/DetailsExpansionWindow.h"

#include <QFile>

#include "ui_DetailsExpansionWindow.h"

namespace qorquicomponents {

DetailsExpansionWindow* DetailsExpansionWindow::getInstance() {
    static DetailsExpansionWindow* instance = new DetailsExpansionWindow();
    return instance;
}

DetailsExpansionWindow::DetailsExpansionWindow()
    : QWidget(nullptr, Qt::Dialog | Qt::WindowCloseButtonHint), ui(new Ui::DetailsExpansionWindow) {
    ui->setupUi(this);
    setAttribute(Qt::WA_StyledBackground, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/Dialogs.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));
    setFixedWidth(440);
    connect(ui->okBtn, &QPushButton::clicked, this, &QWidget::close);
}

DetailsExpansionWindow::~DetailsExpansionWindow() { delete ui; }

QString DetailsExpansionWindow::messageText() const { return ui->messageLab->text(); }

void DetailsExpansionWindow::setWindowContent(unsigned int errorCode, const QString& text) {
    m_errorCode = errorCode;
    ui->messageLab->setText(text);
    ui->codeLab->setVisible(errorCode != 0);
    ui->codeLab->setText(tr("Error code: %1").arg(QStringLiteral("0x") + QString::number(errorCode, 16).toUpper()));
    adjustSize();
    if (m_mainWidget != nullptr && m_mainWidget->isVisible()) {
        const QRect main = m_mainWidget->window()->frameGeometry();
        move(main.center() - rect().center());
    }
    show();
    raise();
    activateWindow();
}

}  // namespace qorquicomponents
