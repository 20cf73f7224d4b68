// The one toast-style tip of the client: a small frameless window that slides
// in over the window it belongs to, shows a level icon and one or two lines of
// text for a while and goes away by itself. GUI thread only.
#pragma once

#include <QRect>
#include <QString>
#include <QWidget>

class QHideEvent;
class QParallelAnimationGroup;
class QPauseAnimation;
class QPropertyAnimation;
class QSequentialAnimationGroup;

namespace Ui {
class TipWindows;
}

namespace qorquicomponents {

enum ErrorLevel : int {
    ErrorLevelRisk = 0,
    ErrorLevelWarn = 1,
    ErrorLevelSuccess = 2,
    ErrorLevelInfo = 3,
    ErrorLevelRemind = 4,
};

enum TipWindowType : int {
    TipWindowPlain = 0,        // text only, shown 2000 ms
    TipWindowWithDetails = 1,  // with "ShowDetails" and close buttons, shown 5000 ms
};

class TipWindows : public QWidget {
    Q_OBJECT

public:
    static TipWindows* getInstance();
    ~TipWindows() override;

    // Shows a tip. parent (may be null) becomes the current father widget;
    // topOffset is the distance from the top of the step-father area.
    void setDisplayText(ErrorLevel level, const QString& text, TipWindowType type, QWidget* parent, int topOffset);

    // Geometry (global) of the window the tip belongs to; cleared on hide.
    // Without one the tip centres on the father widget, else on the main
    // widget, else on the primary screen.
    void setStepfatherWidgetInfo(int x, int y, int width, int height);
    QWidget* getCurrentFatherWidget() const { return m_currentFatherWidget; }
    void setMainWidgetPtr(QWidget* widget) { m_mainWidget = widget; }
    // The error code the details window is given when "ShowDetails" is pressed.
    void setNeedShowErrorCode(unsigned int code) { m_needShowErrorCode = code; }

    unsigned int needShowErrorCode() const { return m_needShowErrorCode; }
    QRect stepfatherArea() const { return QRect(m_stepfatherX, m_stepfatherY, m_stepfatherWidth, m_stepfatherHeight); }
    QString displayText() const;
    ErrorLevel displayLevel() const { return m_level; }
    TipWindowType displayType() const { return m_type; }
    // How long the tip stays before it leaves, by type.
    static int holdDurationMs(TipWindowType type);
    // The level's icon, a resource path.
    static QString iconPath(ErrorLevel level);

    static constexpr int kSlideDurationMs = 500;
    static constexpr int kFadeDurationMs = 15;
    static constexpr int kFontPixelSize = 14;

public slots:
    void onCloseBtnClicked();
    void onViewDetailsBtnClicked();

protected:
    void hideEvent(QHideEvent* event) override;

private:
    TipWindows();
    void layoutForText(const QString& text, TipWindowType type);
    QRect anchorArea(QWidget* parent) const;

    Ui::TipWindows* ui;
    int m_stepfatherX = 0;
    int m_stepfatherY = 0;
    int m_stepfatherWidth = 0;
    int m_stepfatherHeight = 0;
    QWidget* m_currentFatherWidget = nullptr;
    QWidget* m_mainWidget = nullptr;
    unsigned int m_needShowErrorCode = 0;
    ErrorLevel m_level = ErrorLevelInfo;
    TipWindowType m_type = TipWindowPlain;

    QPropertyAnimation* m_fadeAnimation;
    QPropertyAnimation* m_slideInAnimation;
    QPropertyAnimation* m_slideOutAnimation;
    QPauseAnimation* m_holdAnimation;
    QParallelAnimationGroup* m_enterGroup;
    QSequentialAnimationGroup* m_animationGroup;
};

}  // namespace qorquicomponents
