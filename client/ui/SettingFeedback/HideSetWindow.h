// The debug window that ordinary users never see: it is opened by five
// presses on the settings window's title (or the reverse screen's hidden
// gesture, through showFrom). It chooses the transport of each stream and the
// encoder preference (written to the settings store; the next cast uses
// them), switches the library's stream dumps and time log, a few diagnostics,
// and opens the log folder. One instance per process. GUI thread only.
#pragma once

#include <QPoint>
#include <QWidget>

#include <atomic>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QStackedWidget;

// True while the debug log is shown (VLOG(1) lines are written).
extern bool g_DebugLogEnable;

namespace qorquicomponents {

class HideSetWindow : public QWidget {
    Q_OBJECT

public:
    static HideSetWindow* getInstance();
    static void destory();
    // Shows the window at anchor's top-left corner (screen coordinates) plus
    // 32 pixels to the right (22 in Croatian). anchor may be null: then it
    // keeps its last place. The one call other windows need.
    static void showFrom(QWidget* anchor);

    // The stream rows of the protocol page, in their order on screen.
    enum Stream : int {
        CastVideo = 0,          // UDP, TCP, BRX
        ScreenMouse = 1,        // UDP, TCP
        ScreenReverseControl = 2,
        ReverseVideo = 3,
        ReverseScreenControl = 4,
        StreamCount = 5,
    };
    // The checked value of a stream's choices, -1 when none is.
    int checkedProtocol(Stream stream) const;
    QButtonGroup* protocolGroup(Stream stream) const { return m_groups[stream]; }
    QCheckBox* codingBox() const { return m_codingBox; }
    QPushButton* restoreDefaultBtn() const { return m_restoreBtn; }
    QPushButton* openLogBtn() const { return m_openLogBtn; }
    // A control by its visible text (dump switches, diagnostics).
    QWidget* control(const QString& text) const;
    QStackedWidget* stackedWidget() const { return m_stack; }
    // The folder "Open the log" opens.
    static QString logFolder();

signals:
    void signalPrintProcessLogs();
    void signalShowDisplayInfo();
    void signalShowDisplaySetting();
    void signalChangeBYOMModel(int mode);
    void signalReverseWriteStream(bool on);
    void signalReverseGetJPEG();
    void signalReverseKeyFrame();
    // "Open the log" asks for this folder (the desktop's file handler opens it).
    void signalOpenFolder(QString path);

public slots:
    void onOpenLogClicked();
    void onRestoreDefaultClicked();

protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    HideSetWindow();
    ~HideSetWindow() override;
    QWidget* buildProtocolPage();
    QWidget* buildDumpPage();
    QWidget* buildCodingPage();
    QWidget* buildRealtimePage();
    QWidget* buildReversePage();
    QWidget* buildDebugLogPage();
    QCheckBox* addSwitch(QLayout* layout, const QString& text);
    QPushButton* addButton(QLayout* layout, const QString& text);
    void writeProtocol(Stream stream, int value);

    static std::atomic<HideSetWindow*> s_instance;

    QLabel* m_titleLab = nullptr;
    QStackedWidget* m_stack = nullptr;
    QButtonGroup* m_groups[StreamCount] = {};
    QCheckBox* m_codingBox = nullptr;
    QPushButton* m_restoreBtn = nullptr;
    QPushButton* m_openLogBtn = nullptr;
    QComboBox* m_byomModel = nullptr;
    QPoint m_dragOffset;
    bool m_dragging = false;
};

}  // namespace qorquicomponents
