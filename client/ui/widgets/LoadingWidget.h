// The main window's loading indicator: a veil over the content area with a
// spinning arc. Shown while a request is in flight. GUI thread only.
#pragma once

#include <QWidget>

class QPaintEvent;
class QShowEvent;
class QHideEvent;
class QTimer;

namespace qorquicomponents {

class LoadingWidget : public QWidget {
    Q_OBJECT

public:
    explicit LoadingWidget(QWidget* parent);

    // Covers the whole parent and spins until hidden.
    void showLoading();
    void hideLoading();

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QTimer* m_timer;
    int m_angle = 0;
};

}  // namespace qorquicomponents
