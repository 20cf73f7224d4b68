// The window that expands a tip's message: the text, the error code and what
// to try. One instance, opened by the tip's "ShowDetails". GUI thread only.
#pragma once

#include <QString>
#include <QWidget>

namespace Ui {
class DetailsExpansionWindow;
}

namespace qorquicomponents {

class DetailsExpansionWindow : public QWidget {
    Q_OBJECT

public:
    static DetailsExpansionWindow* getInstance();
    ~DetailsExpansionWindow() override;

    void setMainWidgetPtr(QWidget* widget) { m_mainWidget = widget; }
    // Shows the window for one message; code 0 means no code is known.
    void setWindowContent(unsigned int errorCode, const QString& text);

    unsigned int errorCode() const { return m_errorCode; }
    QString messageText() const;

private:
    DetailsExpansionWindow();

    Ui::DetailsExpansionWindow* ui;
    QWidget* m_mainWidget = nullptr;
    unsigned int m_errorCode = 0;
};

}  // namespace qorquicomponents
