// A small dark text bubble shown near the pointer over a button; it does not
// take the focus or the mouse. GUI thread only.
#pragma once

#include <QString>
#include <QWidget>

class QLabel;

namespace qorquicomponents {

class ToolTip : public QWidget {
    Q_OBJECT

public:
    explicit ToolTip(QWidget* parent = nullptr);

    void setText(const QString& text);
    QString text() const;
    // Places the bubble just below and right of a global point.
    void showAt(const QPoint& globalPos);

private:
    QLabel* m_label;
};

}  // namespace qorquicomponents
