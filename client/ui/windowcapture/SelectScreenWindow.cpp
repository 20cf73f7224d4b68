#include "SelectScreenWindow.h"

#include <QHBoxLayout>
#include <QListView>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "casting/Log.h"

namespace qorquicomponents {

// ---------------------------------------------------------------------------
// Model
// ---------------------------------------------------------------------------

int SelectScreenWindowModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : m_previews.size();
}

QVariant SelectScreenWindowModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() < 0 || index.row() >= m_previews.size()) return {};
    const WindowScreenPreviewInfo& preview = m_previews.at(index.row());
    switch (role) {
    case NameRole:
        return preview.name;
    case WindowIdRole:
        return QVariant::fromValue<quint64>(preview.windowId);
    case ImageRole:
        return preview.image;
    case SelectedRole:
        return preview.selected;
    default:
        return {};
    }
}

void SelectScreenWindowModel::setData(const QList<WindowScreenPreviewInfo>& previews) {
    beginResetModel();
    m_previews = previews;  // the old previews (and their grabbed images) go here
    endResetModel();
}

void SelectScreenWindowModel::addData(const WindowScreenPreviewInfo& preview) {
    beginInsertRows(QModelIndex(), m_previews.size(), m_previews.size());
    m_previews.append(preview);
    endInsertRows();
}

void SelectScreenWindowModel::changeSelectedState(std::uint64_t window, bool selected) {
    if (window == 0) return;
    beginResetModel();
    for (WindowScreenPreviewInfo& preview : m_previews) {
        if (preview.windowId == window) {
            preview.selected = selected;
            break;
        }
    }
    endResetModel();
}

// ---------------------------------------------------------------------------
// Delegate
// ---------------------------------------------------------------------------

QRect SelectScreenWindowDelegate::previewRect(const QRect& tile) {
    return {tile.left() + kPreviewLeft, tile.top() + 12, kPreviewWidth, kPreviewHeight};
}

QSize SelectScreenWindowDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const {
    return {kPreviewWidth + 2 * kPreviewLeft, kPreviewHeight + 48};
}

void SelectScreenWindowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                       const QModelIndex& index) const {
    painter->save();
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    const QRect preview = previewRect(option.rect);
    const QImage image = index.data(SelectScreenWindowModel::ImageRole).value<QImage>();
    if (!image.isNull()) {
        const QImage scaled = image.scaled(preview.size(), Qt::KeepAspectRatio, Qt::SmoothTransformation);
        const QPoint at(preview.left() + (preview.width() - scaled.width()) / 2,
                        preview.top() + (preview.height() - scaled.height()) / 2);
        painter->drawImage(at, scaled);
    }
    const bool selected = index.data(SelectScreenWindowModel::SelectedRole).toBool();
    if (selected) {
        painter->setPen(QPen(QColor(0x1e, 0x6f, 0xff), 2));
        painter->drawRect(preview.adjusted(-2, -2, 2, 2));
    }
    const QRect title(option.rect.left() + kPreviewLeft, preview.bottom() + 8, kPreviewWidth, 24);
    painter->setPen(option.palette.color(QPalette::Text));
    const QString name = index.data(SelectScreenWindowModel::NameRole).toString();
    painter->drawText(title, Qt::AlignCenter, option.fontMetrics.elidedText(name, Qt::ElideRight, title.width()));
    painter->restore();
}

bool SelectScreenWindowDelegate::editorEvent(QEvent* event, QAbstractItemModel* model,
                                             const QStyleOptionViewItem& option, const QModelIndex& index) {
    if (event->type() == QEvent::MouseButtonPress) {
        auto* press = static_cast<QMouseEvent*>(event);
        if (previewRect(option.rect).contains(press->pos())) {
            emit signalChooseWindow(index.data(SelectScreenWindowModel::WindowIdRole).value<quint64>());
            return true;
        }
    }
    return QStyledItemDelegate::editorEvent(event, model, option, index);
}

// ---------------------------------------------------------------------------
// Selection window
// ---------------------------------------------------------------------------

SelectScreenWindow_linux::SelectScreenWindow_linux(QWidget* mainWindow)
    : QWidget(nullptr, Qt::Window), m_mainWindow(mainWindow) {
    setWindowTitle(QStringLiteral("Select Window"));
    setObjectName(QStringLiteral("SelectScreenWindow_linux"));
    resize(720, 520);
    m_view = new QListView(this);
    m_view->setViewMode(QListView::IconMode);
    m_view->setResizeMode(QListView::Adjust);
    m_view->setMovement(QListView::Static);
    m_view->setSpacing(8);
    m_view->setSelectionMode(QAbstractItemView::NoSelection);
    m_refreshBtn = new QPushButton(tr("Refresh"), this);
    m_refreshBtn->setObjectName(QStringLiteral("refreshBtn"));
    m_confirmBtn = new QPushButton(tr("Confirm"), this);
    m_confirmBtn->setObjectName(QStringLiteral("confirmBtn"));
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_refreshBtn);
    buttons->addWidget(m_confirmBtn);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_view);
    layout->addLayout(buttons);
    connect(m_refreshBtn, &QPushButton::clicked, this, &SelectScreenWindow_linux::onRefreshWindowClicked);
    connect(m_confirmBtn, &QPushButton::clicked, this, &SelectScreenWindow_linux::onConfirmBtnClicked);
}

void SelectScreenWindow_linux::initData() {
    const QList<WindowScreenPreviewInfo> previews = m_capture.getPreviewInfo();
    QList<WindowScreenPreviewInfo> filled = previews;
    m_chosenWindow = 0;
    if (!filled.isEmpty()) {
        filled.first().selected = true;
        m_chosenWindow = filled.first().windowId;
    }
    if (m_model == nullptr) {
        m_model = new SelectScreenWindowModel(this);
        m_delegate = new SelectScreenWindowDelegate(this);
        m_view->setModel(m_model);
        m_view->setItemDelegate(m_delegate);
        connect(m_delegate, &SelectScreenWindowDelegate::signalChooseWindow, this,
                &SelectScreenWindow_linux::onChooseWindow);
    }
    m_model->setData(filled);
}

void SelectScreenWindow_linux::onRefreshWindowClicked() { initData(); }

void SelectScreenWindow_linux::onChooseWindow(quint64 window) {
    m_model->changeSelectedState(m_chosenWindow, false);
    m_chosenWindow = window;
    m_model->changeSelectedState(m_chosenWindow, true);
}

void SelectScreenWindow_linux::onConfirmBtnClicked() {
    if (m_chosenWindow == 0 || !m_capture.isWindowValid(m_chosenWindow)) {
        ZV_LOG(INFO) << " the chosen window " << m_chosenWindow << " is gone; refilling the previews";
        initData();
        return;
    }
    if (m_capture.isMinimized(m_chosenWindow)) m_capture.restoreWindow(m_chosenWindow);
    m_capture.raiseWindow(m_chosenWindow);
    ZV_LOG(INFO) << " casting window " << m_chosenWindow;
    emit signalStartWindowScreen(m_chosenWindow);
    m_delegate->setCurrentScreenWindowId(m_chosenWindow);
    hide();
}

void SelectScreenWindow_linux::resetScreenWindowState() {
    if (m_delegate != nullptr) m_delegate->setCurrentScreenWindowId(0);
}

void SelectScreenWindow_linux::showEvent(QShowEvent* event) {
    if (m_mainWindow != nullptr) {
        const QRect main = m_mainWindow->geometry();
        move(main.x() + (main.width() - width()) / 2, main.y() + (main.height() - height()) / 2);
    }
    initData();  // every showing has fresh images
    QWidget::showEvent(event);
}

void SelectScreenWindow_linux::mousePressEvent(QMouseEvent* event) {
    m_dragOffset = event->globalPos() - frameGeometry().topLeft();
    QWidget::mousePressEvent(event);
}

void SelectScreenWindow_linux::mouseMoveEvent(QMouseEvent* event) {
    if (event->buttons() & Qt::LeftButton) move(event->globalPos() - m_dragOffset);
    QWidget::mouseMoveEvent(event);
}

}  // namespace qorquicomponents
