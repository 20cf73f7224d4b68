// The main window's status page while a file is cast: the panel's name, a
// "FileScreen..." text that cycles every half second, and a stop button.
// GUI thread only.
#pragma once

#include <QWidget>

#include "casting/SessionRecords.h"

class QLabel;
class QPushButton;
class QTimer;

namespace Ui {
class FileScreenPage;
}

namespace qorquicomponents {

class FileScreenPage : public QWidget {
    Q_OBJECT

public:
    explicit FileScreenPage(QWidget* parent = nullptr);
    ~FileScreenPage() override;

    void setBigScreenInfo(const tagDeviceInfo_& info);
    // Starts the cycling text.
    void setFileScreenShow();

    QLabel* statusLabel() const;
    QLabel* nameLabel() const;
    QLabel* modelLabel() const;
    QPushButton* stopButton() const;
    bool isAnimationRunning() const;

    static constexpr int kTextMs = 500;
    static constexpr int kNameMaxWidth = 364;

signals:
    void signalStopScreen();

public slots:
    void onStopScreenBtnClicked();
    void onTimerout();

private:
    Ui::FileScreenPage* ui;
    int m_textCount = 0;  // 0..2
    QTimer* m_timer;
};

}  // namespace qorquicomponents
