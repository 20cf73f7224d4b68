#include "ui/DynamicWindow.h"

#include <QFile>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>

#include "ui/TipWindows.h"
#include "ui_DynamicWindow.h"

namespace qorquicomponents {

DynamicWindow::DynamicWindow(QWidget* parent)
    : QWidget(parent, Qt::Dialog | Qt::FramelessWindowHint), ui(new Ui::DynamicWindow) {
    ui->setupUi(this);
    setObjectName(QStringLiteral("DynamicWindow"));
    setAttribute(Qt::WA_StyledBackground, true);
    setWindowModality(Qt::ApplicationModal);
    setFixedWidth(420);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/Dialogs.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));
    connect(ui->okBtn, &QPushButton::clicked, this, [this] {
        emit signalOkClicked();
        close();
    });
    connect(ui->cancelBtn, &QPushButton::clicked, this, [this] {
        emit signalCancelClicked();
        close();
    });
    connect(ui->closeBtn, &QPushButton::clicked, this, [this] {
        emit signalCancelClicked();
        close();
    });
}

DynamicWindow::~DynamicWindow() { delete ui; }

QString DynamicWindow::titleText() const { return ui->titleLab->text(); }
QString DynamicWindow::messageText() const { return ui->textLab->text(); }

void DynamicWindow::setWindowContent(const QString& icon, const QString& title, const QString& text,
                                     DynamicWindowType type, int extra) {
    m_iconName = icon;
    m_type = type;
    m_extra = extra;
    const ErrorLevel level = icon == QLatin1String("warning") ? ErrorLevelWarn : ErrorLevelRisk;
    ui->iconLab->setStyleSheet(QStringLiteral("border-image: url(%1);").arg(TipWindows::iconPath(level)));
    ui->titleLab->setText(title);
    ui->textLab->setText(text);
    setWindowTitle(title);
    ui->cancelBtn->setVisible(type == DynamicWindowConfirmCancel);
}

void DynamicWindow::setTitleShow(bool show) { ui->titleWidget->setVisible(show); }

void DynamicWindow::showMessage() {
    adjustSize();
    QRect anchor;
    if (parentWidget() != nullptr && parentWidget()->isVisible()) {
        anchor = parentWidget()->window()->frameGeometry();
    } else if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        anchor = screen->availableGeometry();
    }
    if (anchor.isValid()) move(anchor.center() - rect().center());
    show();
    raise();
    activateWindow();
}

void DynamicWindow::mousePressEvent(QMouseEvent* event) {
    m_dragOffset = event->globalPos() - frameGeometry().topLeft();
    QWidget::mousePressEvent(event);
}

void DynamicWindow::mouseMoveEvent(QMouseEvent* event) {
    if (event->buttons() & Qt::LeftButton) move(event->globalPos() - m_dragOffset);
    QWidget::mouseMoveEvent(event);
}

}  // namespace qorquicomponents
