// The share page: asks by connect code for the panel's screen to be shown on
// this PC (reverse screen). It only checks the code and emits
// signalStartReverseScreen; the session controller does the rest. GUI thread
// only.
#pragma once

#include <QString>
#include <QWidget>

#include <memory>

class QLineEdit;
class QPushButton;

namespace Ui {
class SharePage;
}

namespace qorquicomponents {

class CodeEntry;

class SharePage : public QWidget {
    Q_OBJECT

public:
    explicit SharePage(QWidget* parent = nullptr);
    ~SharePage() override;

    QLineEdit* getReverseScreenCodeEdit() const;
    QPushButton* getStartReverseScreenBtn() const;
    QString getReverseScreenConnectCode() const;

    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    void signalStartReverseScreen(const QString& code);

public slots:
    void onTextChanged(const QString& text);
    void onStartCodeReverseScreen();

private:
    Ui::SharePage* ui;
    QWidget* m_parentWindow;
    std::unique_ptr<CodeEntry> m_codeEntry;
};

}  // namespace qorquicomponents
