// A small bubble with a pointer triangle and a word-wrapped label, shown
// over a row to explain it. GUI thread only.
#pragma once

#include <QWidget>

class QLabel;

namespace qorquicomponents {

class BubbleTipWindows : public QWidget {
    Q_OBJECT

public:
    explicit BubbleTipWindows(QWidget* parent = nullptr);

    QLabel* label() const { return m_label; }
    void setText(const QString& text);
    // The pointer triangle: its left edge offset and its height in pixels.
    void setTriangleInfo(int offset, int height);

    static constexpr int kLabelWidth = 328;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QLabel* m_label;
    int m_triangleOffset = 10;
    int m_triangleHeight = 5;
};

}  // namespace qorquicomponents
