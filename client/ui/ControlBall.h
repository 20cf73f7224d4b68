// The floating control ball shown while a cast runs (hidden until then). It
// hides itself when the controller's hide time-out fires.
#pragma once

#include <QString>
#include <QWidget>

class QPaintEvent;

class ControlBall : public QWidget {
    Q_OBJECT

public:
    // language: the language word the ball's menu texts follow.
    explicit ControlBall(const QString& language, QWidget* parent = nullptr);

    QString language() const { return m_language; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_language;
};
