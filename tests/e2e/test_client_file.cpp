// The desktop client casting a picture file to a real receiver. The receiver
// runs on one test host and shows the file on a private X server; this
// process enters the other test host and drives the real main window there
// (offscreen): it connects with the panel's code, picks the picture through
// the "File Screen" entry, zooms, turns and pages in the viewer, and stops.
// The receiver's status lines and its rendering of the file page are checked.
#include <QtTest/QtTest>

#include <QApplication>
#include <QColor>
#include <QFileDialog>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <QToolButton>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/FileScreenWidget/ControlBtn.h"
#include "ui/FileScreenWidget/FileScreenPage.h"
#include "ui/FileScreenWidget/FileScreenStackWidget.h"
#include "ui/FileScreenWidget/VideoPage.h"
#include "ui/OrvixUpgrade.h"
#include "ui/TipWindows.h"
#include "ui/widgets/SwitchButton.h"

using namespace std::chrono_literals;
using qorquicomponents::ConnectPage;
using qorquicomponents::FileScreenStackWidget;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::TipWindows;
using zvtest::ChildProcess;
using zvtest::jsonLine;
using zvtest::kBlocks;
using zvtest::statusEvent;
constexpr auto near = zvtest::nearColour;

namespace {

zvtest::NetnsPair* g_net = nullptr;
zvtest::XvfbSession* g_x = nullptr;
std::string g_skipReason;
std::string g_root;

}  // namespace

class TestClientFile : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void aPictureIsCastSteeredPagedAndStopped();
    void aFileThatVanishesEndsTheCastWithANotice();
    void aSoundPlaysPausesSeeksAndItsProgressFollowsThePanel();

private:
    QImage fileSnapshot();
    void connectWithCode();
    // Answers the next open-file dialog with path.
    void answerDialogWith(const QString& path);

    std::unique_ptr<ChildProcess> m_receiver;
    std::unique_ptr<OrvixUpgrade> m_window;
    std::string m_code;
    bool m_codeUsed = false;
    QString m_blocks;
    QString m_green;
    int m_snapshots = 0;
};

void TestClientFile::initTestCase() {
    if (!g_skipReason.empty()) QSKIP(g_skipReason.c_str());
    const std::string home = g_root + "/panel";
    std::system(("mkdir -p " + home).c_str());
    m_receiver = std::make_unique<ChildProcess>(
        zvtest::NetnsPair::in(g_net->a, {"env", "HOME=" + home, "XDG_CONFIG_HOME=" + home + "/.config",
                                         "DISPLAY=" + g_x->display(), "QT_QPA_PLATFORM=xcb",
                                         "PULSE_SERVER=unix:" + home + "/no-sound",
                                         zvtest::builtProgram("zelvanor-receiver"), "--no-discovery", "--name",
                                         "Room File"}),
        ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    const QJsonObject ready = jsonLine(m_receiver->waitForLine(statusEvent("ready"), 20s));
    m_code = ready.value(QLatin1String("code")).toString().toStdString();
    QVERIFY(!m_code.empty());

    // Two pictures in one folder: the four colour blocks, then a green one.
    const QString folder = QString::fromStdString(g_root + "/pictures");
    QVERIFY(QDir().mkpath(folder));
    QImage blocks(400, 400, QImage::Format_RGB32);
    QPainter painter(&blocks);
    for (int i = 0; i < 4; ++i) painter.fillRect((i % 2) * 200, (i / 2) * 200, 200, 200, kBlocks[i]);
    painter.end();
    m_blocks = folder + QStringLiteral("/a-blocks.png");
    QVERIFY(blocks.save(m_blocks));
    QImage green(300, 200, QImage::Format_RGB32);
    green.fill(Qt::green);
    m_green = folder + QStringLiteral("/b-green.png");
    QVERIFY(green.save(m_green));

    m_window = std::make_unique<OrvixUpgrade>(nullptr);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void TestClientFile::cleanupTestCase() {
    m_window.reset();
    if (m_receiver) m_receiver->stop();
}

QImage TestClientFile::fileSnapshot() {
    const std::string path = g_root + "/file-snap-" + std::to_string(++m_snapshots) + ".png";
    m_receiver->writeLine("{\"cmd\":\"file-snapshot\",\"path\":\"" + path + "\"}");
    const QJsonObject answer = jsonLine(m_receiver->waitForLine(statusEvent("file-snapshot"), 10s));
    return answer.value(QLatin1String("saved")).toBool() ? QImage(QString::fromStdString(path)) : QImage();
}

void TestClientFile::answerDialogWith(const QString& path) {
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, timer, [timer, path] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr) return;
        if (auto* name = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"))) name->setText(path);
        QMetaObject::invokeMethod(dialog, "done", Qt::QueuedConnection, Q_ARG(int, QDialog::Accepted));
        timer->deleteLater();
    });
    timer->start(50);
}

void TestClientFile::connectWithCode() {
    // The panel makes a new code once a session with the last one ended.
    if (m_codeUsed) {
        m_code = jsonLine(m_receiver->waitForLine(statusEvent("code"), 35s)).value(QLatin1String("code")).toString()
                     .toStdString();
        QVERIFY(!m_code.empty());
    }
    m_codeUsed = true;
    ConnectPage* connectPage = m_window->getConnectPage();
    QLineEdit* edit = connectPage->getConnectCodeEdit();
    edit->setFocus();
    QTRY_VERIFY(edit->hasFocus());
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Backspace);
    QTest::keyClicks(edit, QString::fromStdString(m_code).toLower());
    connectPage->getStartConnectBtn()->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              20000);
    QVERIFY(connectPage->isFileCastEnabled());
}

void TestClientFile::aPictureIsCastSteeredPagedAndStopped() {
    ConnectPage* connectPage = m_window->getConnectPage();
    connectWithCode();
    if (QTest::currentTestFailed()) return;

    // "File Screen", the blocks picked in the dialog.
    answerDialogWith(m_blocks);
    connectPage->findChild<QToolButton*>(QStringLiteral("fileScreenBtn"))->click();
    // The answer comes back through this thread's event loop.
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus),
                              20000);
    const QJsonObject playing = jsonLine(m_receiver->waitForLine(statusEvent("file-playing"), 20s));
    QCOMPARE(playing.value(QLatin1String("name")).toString(), QStringLiteral("a-blocks.png"));
    QCOMPARE(playing.value(QLatin1String("width")).toInt(), 400);
    FileScreenStackWidget* viewer = m_window->getFileScreenWidget();
    QVERIFY(viewer->isVisible());
    QCOMPARE(viewer->fileList().files().size(), 2);

    // The panel shows the picture fitted: the four blocks around its centre.
    QImage page;
    QVERIFY(QTest::qWaitFor(
        [&] {
            page = fileSnapshot();
            if (page.isNull()) return false;
            const int side = std::min(page.width(), page.height());
            const QPoint centre(page.width() / 2, page.height() / 2);
            for (int i = 0; i < 4; ++i) {
                const QPoint probe = centre + QPoint((i % 2 ? 1 : -1) * side / 4, (i / 2 ? 1 : -1) * side / 4);
                if (!near(page.pixelColor(probe), kBlocks[i])) return false;
            }
            return true;
        },
        10000));

    // Zoom in and a quarter turn from the viewer's bar: the panel follows.
    qorquicomponents::ControlBtn* bar = viewer->controlBar();
    bar->zoomInButton()->click();
    QVERIFY(!m_receiver->waitForLine(statusEvent("file-view", "percent", 125), 10s).empty());
    bar->rotateRightButton()->click();
    QVERIFY(!m_receiver->waitForLine(statusEvent("file-view", "rotation", 90), 10s).empty());

    // Next: the green picture of the same folder.
    QTRY_VERIFY_WITH_TIMEOUT(bar->nextButton()->isEnabled(), 3000);
    bar->nextButton()->click();
    const QJsonObject next = jsonLine(m_receiver->waitForLine(statusEvent("file-playing"), 20s));
    QCOMPARE(next.value(QLatin1String("name")).toString(), QStringLiteral("b-green.png"));
    QCOMPARE(viewer->currentFile(), m_green);
    QVERIFY(QTest::qWaitFor(
        [&] {
            page = fileSnapshot();
            return !page.isNull() && near(page.pixelColor(page.width() / 2, page.height() / 2), Qt::green);
        },
        10000));

    // Stop from the status page: the panel ends the file, the connection stays.
    m_window->getFileScreenPage()->stopButton()->click();
    QVERIFY(!m_receiver->waitForLine(statusEvent("file-stopped"), 10s).empty());
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              20000);
    // The state changes on the stop's worker; the pages on this thread after it.
    QTRY_VERIFY_WITH_TIMEOUT(viewer->isHidden(), 10000);
    QVERIFY(viewer->fileList().files().isEmpty());

    connectPage->findChild<QPushButton*>(QStringLiteral("disconnectBtn"))->click();
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(!m_receiver->waitForLine(statusEvent("client-left"), 10s).empty());
}

void TestClientFile::aFileThatVanishesEndsTheCastWithANotice() {
    connectWithCode();
    if (QTest::currentTestFailed()) return;
    const QString path = QString::fromStdString(g_root) + QStringLiteral("/lonely.png");
    QVERIFY(QFile::copy(m_blocks, path));
    answerDialogWith(path);
    m_window->getConnectPage()->findChild<QToolButton*>(QStringLiteral("fileScreenBtn"))->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus),
                              20000);
    QVERIFY(!m_receiver->waitForLine(statusEvent("file-playing"), 20s).empty());

    TipWindows::getInstance()->hide();
    QVERIFY(QFile::remove(path));
    QTRY_VERIFY_WITH_TIMEOUT(m_window->getFileScreenWidget()->isHidden(), 20000);
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("Screen mirroring ended"));
    QVERIFY(!m_receiver->waitForLine(statusEvent("file-stopped"), 10s).empty());

    m_window->getConnectPage()->findChild<QPushButton*>(QStringLiteral("disconnectBtn"))->click();
    QVERIFY(!m_receiver->waitForLine(statusEvent("client-left"), 10s).empty());
}

void TestClientFile::aSoundPlaysPausesSeeksAndItsProgressFollowsThePanel() {
    // A little over ten seconds of tone.
    const std::string wav = g_root + "/tone.wav";
    const std::string make = "gst-launch-1.0 -q audiotestsrc num-buffers=440 ! audioconvert ! wavenc ! filesink location=" +
                             wav + " >/dev/null 2>&1";
    if (std::system(make.c_str()) != 0) QSKIP("cannot make a WAV file (gst-launch-1.0)");
    connectWithCode();
    if (QTest::currentTestFailed()) return;
    answerDialogWith(QString::fromStdString(wav));
    m_window->getConnectPage()->findChild<QToolButton*>(QStringLiteral("fileScreenBtn"))->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus),
                              20000);
    FileScreenStackWidget* viewer = m_window->getFileScreenWidget();
    qorquicomponents::VideoPage* page = viewer->videoPage();
    QCOMPARE(viewer->currentPage(), static_cast<QWidget*>(page));
    QCOMPARE(page->captionLabel()->text(), QStringLiteral("tone.wav is casting..."));

    // The once-a-second poll brings the panel's duration and position.
    QTRY_COMPARE_WITH_TIMEOUT(page->totalTimeLabel()->text(), QStringLiteral("00:10"), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(page->progressSlider()->value() >= 10, 10000);
    QVERIFY(!page->isPaused());

    // Pause: the panel pauses and the button shows "play".
    page->playButton()->click();
    // The call runs on a thread of its own; this thread may wait.
    QVERIFY(!m_receiver->waitForLine(statusEvent("file-state", "state", "paused"), 10s).empty());
    QVERIFY(page->isPaused());

    // Seek to 70 % with the slider: the position follows while paused.
    QSlider* progress = page->progressSlider();
    progress->setSliderDown(true);
    progress->setSliderPosition(70);
    progress->setSliderDown(false);
    QTRY_COMPARE_WITH_TIMEOUT(page->currentTimeLabel()->text(), QStringLiteral("00:07"), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(progress->value(), 69, 5000);

    // Volume 40 from the slider.
    QSlider* volume = page->volumeSlider();
    volume->setSliderDown(true);
    volume->setSliderPosition(40);
    volume->setSliderDown(false);
    QVERIFY(!m_receiver->waitForLine(statusEvent("file-state", "volume", 40), 10s).empty());

    // The page's stop ends the cast; the connection stays.
    page->stopButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(viewer->isHidden(), 20000);
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QVERIFY(!viewer->isPolling());
    QCOMPARE(page->totalTimeLabel()->text(), QStringLiteral("00:00"));
}

int main(int argc, char* argv[]) {
    char folder[] = "/tmp/zv-client-file-XXXXXX";
    if (mkdtemp(folder) != nullptr) g_root = folder;
    const std::string home = g_root + "/pc";
    std::system(("mkdir -p " + home).c_str());
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + g_root + "/no-bus").c_str(), 1);

    std::unique_ptr<zvtest::XvfbSession> x;
    std::unique_ptr<zvtest::NetnsPair> net;
    if (geteuid() != 0) {
        g_skipReason = "needs root (network namespaces for the test hosts)";
    } else {
        // The X server starts before this process leaves the host's network
        // namespace; its socket file stays reachable from both test hosts.
        x = std::make_unique<zvtest::XvfbSession>("1280x720x24");
        if (!x->ready()) {
            g_skipReason = "Xvfb did not start";
        } else {
            g_x = x.get();
            net = std::make_unique<zvtest::NetnsPair>();
            if (!net->ready()) {
                g_skipReason = "no test hosts: " + net->error();
            } else if (!zvtest::NetnsPair::enter(net->b)) {
                g_skipReason = "cannot enter the client's test host";
            }
            g_net = net.get();
        }
    }
    // The client's own widgets stay offscreen.
    setenv("QT_QPA_PLATFORM", "offscreen", 1);

    int result = 0;
    {
        QApplication app(argc, argv);
        TestClientFile test;
        result = QTest::qExec(&test, argc, argv);
    }
    net.reset();
    x.reset();
    if (!g_root.empty()) std::system(("rm -rf " + g_root).c_str());
    return result;
}

#include "test_client_file.moc"
