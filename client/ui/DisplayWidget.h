// The reverse screen's status overlay: delay, bit rate and frame rate of the
// panel's stream, in a small window kept over the reverse screen's top-left
// corner. Its figures show only while the overlay is switched on; clicks on
// it are reported either way (the reverse screen counts them).
#pragma once

#include <QWidget>

class QLabel;

namespace qorquicomponents {

class DisplayWidget : public QWidget {
    Q_OBJECT

public:
    explicit DisplayWidget(QWidget* parent = nullptr);

    void setDelayValue(int delayMs);
    void setBitrateAndFrameRate(int bitRateKbps, int frameRate);
    void setInfoShown(bool shown);
    bool isInfoShown() const { return m_infoShown; }
    QString text() const;

signals:
    void signalClicked();

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void refresh();

    QLabel* m_label = nullptr;
    int m_delayMs = 0;
    int m_bitRateKbps = 0;
    int m_frameRate = 0;
    bool m_infoShown = false;
};

}  // namespace qorquicomponents
