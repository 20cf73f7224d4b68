// The device-list title button: a title and the number of panels found. The
// font shrinks (16, 14, 12, at the least 10 px) until "99 " and the title fit
// in the button with room for its icon. GUI thread only.
#pragma once

#include <QPushButton>
#include <QString>

class QLabel;

namespace qorquicomponents {

class TextButton : public QPushButton {
    Q_OBJECT

public:
    explicit TextButton(QWidget* parent = nullptr);

    void setTitleText(const QString& title);
    QString titleText() const;
    // Shows the count in decimal and fits the font again.
    void setListDeviceCount(unsigned int count);
    QString countText() const;
    void adjustFontSize();
    // The pixel size both labels have now.
    int fontPixelSize() const { return m_fontPixelSize; }

    static constexpr int kStartPixelSize = 16;
    static constexpr int kMinimumTriedPixelSize = 12;
    static constexpr int kAvailableWidth = 256;
    static constexpr int kReservedWidth = 64;

private:
    void applyPixelSize(int size);

    QLabel* m_countLab;
    QLabel* m_titleLab;
    int m_fontPixelSize = kStartPixelSize;
};

}  // namespace qorquicomponents
