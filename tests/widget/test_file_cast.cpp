// The main window's file-cast flow without a panel: the start checks (state,
// network, what can be cast), the request worker against the real library,
// the File Screen entry with its file dialog, a granted cast handing over to
// the viewer and the status page, and the stop that restores the pages.
#include <QtTest/QtTest>

#include <QApplication>
#include <QFileDialog>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QToolButton>

#include <memory>
#include <string>
#include <thread>

#include "WidgetTestSupport.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/DynamicWindow.h"
#include "ui/FileScreenWidget/ControlBtn.h"
#include "ui/FileScreenWidget/FileScreenPage.h"
#include "ui/FileScreenWidget/FileScreenStackWidget.h"
#include "ui/FileScreenWidget/ImagePage.h"
#include "ui/OrvixUpgrade.h"
#include "ui/PopupWindow.h"
#include "ui/RequestThreads.h"
#include "ui/TipWindows.h"
#include "ui/widgets/SwitchButton.h"
#include "ui_OrvixUpgrade.h"

using qorquicomponents::FileScreenPage;
using qorquicomponents::FileScreenStackWidget;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::PopupWindow;
using qorquicomponents::TipWindows;

namespace {

const std::string kBusyLine = "[onFileScreen] Start file screen fail, because the current state is not NormalStatus.";
const std::string kRequestLine = "[fileScreenThreadFun] file cast request start.";
const std::string kFailLine = "[onScreenRequestResult] Request screen fail, ProjectOrShareReqResult::FAIL finish";

}  // namespace

class TestFileCast : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void startIsRefusedInWrongStatesAndForFilesThatCannotBeCast();
    void theEntryAsksForAFileAndTheLibraryIsAsked();
    void aGrantedCastShowsTheViewerAndAStopRestoresThePages();
    void aGrantedCastTheViewerCannotShowKeepsTheConnection();

private:
    static void setState(OrvixUpgrade& window, unsigned state) { window.m_screenStatus = state; }
    static QWidget* currentPage(OrvixUpgrade& window) { return window.ui->stackedWidget->currentWidget(); }
    static void grant(OrvixUpgrade& window, const QString& path) {
        setState(window, OrvixUpgrade::CodeScreenRequestStatus);
        window.m_isFileScreen = true;
        window.m_strFilePath = path;
        const tagDeviceListUnitInfo_ record = window.m_deviceInfo;
        std::thread([&window, record] { emit window.signalScreenResult(SUCCESS, record); }).join();
    }
    QTemporaryDir m_dir;
    QString m_picture;
    std::unique_ptr<OrvixUpgrade> m_window;
};

void TestFileCast::initTestCase() {
    QVERIFY(m_dir.isValid());
    m_picture = m_dir.path() + QStringLiteral("/slide.png");
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(Qt::blue);
    QVERIFY(image.save(m_picture));
    QVERIFY(image.save(m_dir.path() + QStringLiteral("/slide2.png")));
}

void TestFileCast::init() {
    m_window = std::make_unique<OrvixUpgrade>(nullptr);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void TestFileCast::cleanup() {
    if (m_window) {
        QTRY_VERIFY_WITH_TIMEOUT(!m_window->m_fileScreenThread->isRunning(), 30000);
        QTRY_VERIFY_WITH_TIMEOUT(m_window->m_isStopAccepted, 30000);
        if (m_window->getDynamicWindow() != nullptr) m_window->getDynamicWindow()->close();
        setState(*m_window, OrvixUpgrade::NormalStatus);
    }
    m_window.reset();
    PopupWindow::getInstance()->hide();
    TipWindows::getInstance()->hide();
}

void TestFileCast::startIsRefusedInWrongStatesAndForFilesThatCannotBeCast() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network, so every start stops earlier");
    int refused = 0;
    for (unsigned state = OrvixUpgrade::ScreeningStatus; state < OrvixUpgrade::ConnectedStatus; ++state) {
        setState(window, state);
        window.onFileScreen(QStringLiteral("AB12CD34"), m_picture);
        QCOMPARE(log.count(kBusyLine), ++refused);
        QCOMPARE(window.getCurrentStatus(), state);
        QVERIFY(!window.m_fileScreenThread->isRunning());
        QVERIFY(!window.m_isFileScreen);
    }

    // Files the viewer cannot show are refused before the panel is asked.
    setState(window, OrvixUpgrade::ConnectedStatus);
    for (const QString& path : {m_dir.path() + QStringLiteral("/notes.txt"), m_dir.path() + QStringLiteral("/gone.png"),
                                m_dir.path()}) {
        TipWindows::getInstance()->hide();
        window.onFileScreen(QString(), path);
        QTRY_VERIFY(TipWindows::getInstance()->isVisible());
        QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("This file cannot be cast"));
        QVERIFY(!window.m_fileScreenThread->isRunning());
        QVERIFY(!window.isLoadingShown());
        QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    }
    QCOMPARE(log.count(kRequestLine), 0);
}

void TestFileCast::theEntryAsksForAFileAndTheLibraryIsAsked() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network");

    // Connected (by state only: the library has no session). The entry's
    // dialog is answered with the picture; the library refuses the request
    // and the session stays connected, the file forgotten.
    setState(window, OrvixUpgrade::ConnectedStatus);
    window.getConnectPage()->setConnectShow();
    QTimer chooser;
    const QString picture = m_picture;
    connect(&chooser, &QTimer::timeout, [picture] {
        if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) {
            // As if the user picked the file and pressed Open.
            if (auto* name = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"))) name->setText(picture);
            QMetaObject::invokeMethod(dialog, "done", Qt::QueuedConnection, Q_ARG(int, QDialog::Accepted));
        }
    });
    chooser.start(50);
    window.getConnectPage()->findChild<QToolButton*>(QStringLiteral("fileScreenBtn"))->click();
    chooser.stop();
    QCOMPARE(log.countContaining("[onFileScreen] Start file screen " + m_picture.toStdString()), 1);
    QVERIFY(window.isLoadingShown());
    QTRY_COMPARE_WITH_TIMEOUT(log.count(kFailLine), 1, 30000);
    QCOMPARE(log.count(kRequestLine), 1);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QVERIFY(!window.m_isFileScreen);
    QVERIFY(window.m_strFilePath.isEmpty());
    QVERIFY(!window.isLoadingShown());
    QVERIFY(window.getFileScreenWidget()->isHidden());

    // A cancelled dialog asks nothing.
    chooser.disconnect();
    connect(&chooser, &QTimer::timeout, [] {
        if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) dialog->reject();
    });
    chooser.start(50);
    window.onChooseCastFile();
    chooser.stop();
    QCOMPARE(log.countContaining("[onFileScreen] Start file screen"), 1);

    // The connect page's own signal reaches the same start.
    emit window.getConnectPage()->signalFileScreen(QString(), m_picture);
    QTRY_COMPARE_WITH_TIMEOUT(log.count(kFailLine), 2, 30000);

    // From idle the worker logs in first; a code no panel has ends there,
    // and no file cast stays pending.
    setState(window, OrvixUpgrade::NormalStatus);
    window.onFileScreen(QStringLiteral("QQQQ9"), m_picture);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeScreenRequestStatus));
    QCOMPARE(window.m_strConnectCode, QStringLiteral("QQQQ9"));
    QTRY_COMPARE_WITH_TIMEOUT(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 30000);
    QTRY_VERIFY_WITH_TIMEOUT(!window.m_fileScreenThread->isRunning(), 5000);
    QVERIFY(!window.m_isFileScreen);
    QVERIFY(window.m_strFilePath.isEmpty());
    QCOMPARE(log.count(kRequestLine), 2);
    QTRY_VERIFY(!window.isLoadingShown());
}

void TestFileCast::aGrantedCastShowsTheViewerAndAStopRestoresThePages() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    FileScreenStackWidget* viewer = window.getFileScreenWidget();
    FileScreenPage* page = window.getFileScreenPage();

    for (int round = 0; round < 3; ++round) {
        grant(window, m_picture);
        QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus));
        QCOMPARE(log.countContaining("[onScreenRequestResult] File cast start " + m_picture.toStdString()), round + 1);
        QCOMPARE(currentPage(window), static_cast<QWidget*>(page));
        QVERIFY(page->isAnimationRunning());
        QVERIFY(viewer->isVisible());
        QCOMPARE(viewer->currentPage(), static_cast<QWidget*>(viewer->imagePage()));
        QVERIFY(viewer->imagePage()->hasPicture());
        QCOMPARE(viewer->fileList().files().size(), 2);
        QVERIFY(window.ui->titleBtnGroup->isHidden());
        QVERIFY(window.ui->deviceCountLab->isHidden());

        // From the status page, the viewer's own bar, and by closing the viewer.
        if (round == 0) {
            page->stopButton()->click();
        } else if (round == 1) {
            viewer->controlBar()->stopButton()->click();
        } else {
            viewer->close();
        }
        QVERIFY(!window.m_isStopAccepted);
        QTRY_VERIFY_WITH_TIMEOUT(window.m_isStopAccepted, 20000);
        QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
        QVERIFY(viewer->isHidden());
        QVERIFY(!page->isAnimationRunning());
        QVERIFY(viewer->fileList().files().isEmpty());
        QVERIFY(!viewer->imagePage()->hasPicture());
        QVERIFY(!window.m_isFileScreen);
        QVERIFY(window.m_strFilePath.isEmpty());
        QCOMPARE(currentPage(window), static_cast<QWidget*>(window.getScreenPage()));
        QVERIFY(!window.ui->titleBtnGroup->isHidden());
        QVERIFY(!window.ui->deviceCountLab->isHidden());
        QVERIFY(!window.isLoadingShown());
    }
}

void TestFileCast::aGrantedCastTheViewerCannotShowKeepsTheConnection() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    grant(window, m_dir.path() + QStringLiteral("/clip.wmv"));
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QCOMPARE(log.countContaining("the file pages cannot show"), 1);
    QVERIFY(window.getFileScreenWidget()->isHidden());
    QVERIFY(currentPage(window) != window.getFileScreenPage());
}

QTEST_MAIN(TestFileCast)
#include "test_file_cast.moc"
