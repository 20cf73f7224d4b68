// The spinning refresh icon of the device list. A click turns the picture
// exactly once counter-clockwise (18 steps of 20 degrees); clicks during the
// turn neither restart nor lengthen it. GUI thread only.
#pragma once

#include <QPixmap>
#include <QPushButton>

class QPaintEvent;
class QTimer;

namespace qorquicomponents {

class RefreshButton : public QPushButton {
    Q_OBJECT

public:
    explicit RefreshButton(QWidget* parent = nullptr);

    // True starts the turn unless it already runs; the flag is kept either way.
    void setIsClicked(bool clicked);
    bool isClicked() const { return m_isClicked; }
    double angle() const { return m_angle; }
    bool isSpinning() const;
    int tickIntervalMs() const;

    static constexpr double kStepDegrees = -20.0;
    static constexpr double kTickMs = 1000 / 16.66;

public slots:
    // One timer tick: advance, end the turn at -360, repaint.
    void updateIndex();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    double m_angle = 0.0;
    bool m_isClicked = false;
    QTimer* m_timer;
    QPixmap m_picture;
};

}  // namespace qorquicomponents
