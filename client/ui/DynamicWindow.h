// A modal notice with an icon ("error" or "warning"), a title and a text.
// Made fresh for each notice by whoever shows it. GUI thread only.
#pragma once

#include <QString>
#include <QWidget>

class QMouseEvent;

namespace Ui {
class DynamicWindow;
}

namespace qorquicomponents {

enum DynamicWindowType : int {
    DynamicWindowConfirm = 0,        // one "OK" button
    DynamicWindowConfirmCancel = 1,  // "OK" and "Cancel"
};

class DynamicWindow : public QWidget {
    Q_OBJECT

public:
    explicit DynamicWindow(QWidget* parent = nullptr);
    ~DynamicWindow() override;

    // icon: "error" or "warning"; extra is kept for the caller's use.
    void setWindowContent(const QString& icon, const QString& title, const QString& text, DynamicWindowType type,
                          int extra);
    void setTitleShow(bool show);
    // Shows the notice modally over its parent (or the screen) and returns at once.
    void showMessage();

    QString iconName() const { return m_iconName; }
    QString titleText() const;
    QString messageText() const;
    DynamicWindowType windowType() const { return m_type; }
    int extraValue() const { return m_extra; }

signals:
    void signalOkClicked();
    void signalCancelClicked();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    Ui::DynamicWindow* ui;
    QString m_iconName;
    DynamicWindowType m_type = DynamicWindowConfirm;
    int m_extra = 0;
    QPoint m_dragOffset;
};

}  // namespace qorquicomponents
