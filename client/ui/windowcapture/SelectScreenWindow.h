// The window selection of window casting: a grid of previews of the castable
// windows (model + delegate), the chosen window confirmed and handed on by id.
#pragma once

#include <QAbstractListModel>
#include <QPoint>
#include <QStyledItemDelegate>
#include <QWidget>

#include <cstdint>

#include "ui/windowcapture/WindowCapture.h"

class QListView;
class QPushButton;

namespace qorquicomponents {

class SelectScreenWindowModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Roles {
        NameRole = Qt::UserRole + 1,
        WindowIdRole = Qt::UserRole + 2,
        ImageRole = Qt::UserRole + 3,
        SelectedRole = Qt::UserRole + 4,
    };
    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    using QAbstractListModel::setData;  // the per-role overload stays reachable
    void setData(const QList<WindowScreenPreviewInfo>& previews);
    void addData(const WindowScreenPreviewInfo& preview);
    void changeSelectedState(std::uint64_t window, bool selected);
    const QList<WindowScreenPreviewInfo>& previews() const { return m_previews; }

private:
    QList<WindowScreenPreviewInfo> m_previews;
};

class SelectScreenWindowDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    // The preview rectangle inside a tile: 144 x 112 at 12 pixels from its left edge.
    static constexpr int kPreviewLeft = 12;
    static constexpr int kPreviewWidth = 144;
    static constexpr int kPreviewHeight = 112;
    static QRect previewRect(const QRect& tile);

    using QStyledItemDelegate::QStyledItemDelegate;
    void setCurrentScreenWindowId(std::uint64_t window) { m_currentScreenWindowId = window; }
    std::uint64_t currentScreenWindowId() const { return m_currentScreenWindowId; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

signals:
    void signalChooseWindow(quint64 window);

private:
    std::uint64_t m_currentScreenWindowId = 0;
};

class SelectScreenWindow_linux : public QWidget {
    Q_OBJECT
public:
    explicit SelectScreenWindow_linux(QWidget* mainWindow = nullptr);

    // Forgets the window being cast, once window casting ends.
    void resetScreenWindowState();
    std::uint64_t chosenWindow() const { return m_chosenWindow; }
    SelectScreenWindowModel* model() const { return m_model; }
    SelectScreenWindowDelegate* delegate() const { return m_delegate; }
    QListView* view() const { return m_view; }

signals:
    void signalStartWindowScreen(quint64 window);

public slots:
    void onChooseWindow(quint64 window);
    void onRefreshWindowClicked();
    void onConfirmBtnClicked();

protected:
    void showEvent(QShowEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    void initData();

    QWidget* m_mainWindow;
    WindowCapture m_capture;
    QListView* m_view = nullptr;
    QPushButton* m_refreshBtn = nullptr;
    QPushButton* m_confirmBtn = nullptr;
    SelectScreenWindowModel* m_model = nullptr;
    SelectScreenWindowDelegate* m_delegate = nullptr;
    std::uint64_t m_chosenWindow = 0;
    QPoint m_dragOffset;
};

}  // namespace qorquicomponents
