// The panel's picture widget on Qt's offscreen platform: where the picture
// goes (bars), what touches and mouse actions on it report, what it paints.
#include <gtest/gtest.h>

#include <QApplication>
#include <QMouseEvent>
#include <QTest>
#include <QWheelEvent>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "Process.h"
#include "media/VideoView.h"

using zv::media::VideoView;

namespace {

struct Action {
    QString type;
    int x, y;
    bool operator==(const Action& other) const { return type == other.type && x == other.x && y == other.y; }
};
std::ostream& operator<<(std::ostream& out, const Action& action) {
    return out << action.type.toStdString() << "(" << action.x << "," << action.y << ")";
}

class VideoViewTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        static int argc = 1;
        static char name[] = "test_video_view";
        static char* argv[] = {name, nullptr};
        s_app = new QApplication(argc, argv);
    }
    static void TearDownTestSuite() {
        delete s_app;
        s_app = nullptr;
    }

    // A view of 800x600 showing a frame of the given size, actions recorded.
    void show(QSize frame, QColor colour = Qt::blue) {
        m_view = std::make_unique<VideoView>();
        m_view->resize(800, 600);
        m_view->show();
        QImage image(frame, QImage::Format_RGB32);
        image.fill(colour);
        m_view->presentFrame(image);
        ASSERT_TRUE(zvtest::waitFor(
            [&] {
                QCoreApplication::processEvents();
                return !m_view->currentFrame().isNull();
            },
            std::chrono::seconds(5)));
        QObject::connect(m_view.get(), &VideoView::pointerAction,
                         [this](const QString& type, int x, int y) { m_actions.push_back({type, x, y}); });
    }
    void mouse(QEvent::Type type, Qt::MouseButton button, QPointF position) {
        const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
        QMouseEvent event(type, position, m_view->mapToGlobal(position.toPoint()),
                          type == QEvent::MouseMove ? Qt::NoButton : button, held, Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &event);
    }
    void wheel(QPointF position, int eighths) {
        QWheelEvent event(position, m_view->mapToGlobal(position.toPoint()), QPoint(), QPoint(0, eighths),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(m_view.get(), &event);
    }

    static QApplication* s_app;
    std::unique_ptr<VideoView> m_view;
    std::vector<Action> m_actions;
};
QApplication* VideoViewTest::s_app = nullptr;

// 1600x900 in 800x600: the picture is 800x450 with 75-pixel bars above and below.
TEST_F(VideoViewTest, LeftButtonActsAsTouchInPictureUnits) {
    show({1600, 900});
    EXPECT_EQ(m_view->pictureRect(), QRectF(0, 75, 800, 450));

    mouse(QEvent::MouseButtonPress, Qt::LeftButton, {400, 40});  // on the bar: ignored
    mouse(QEvent::MouseButtonRelease, Qt::LeftButton, {400, 40});
    EXPECT_TRUE(m_actions.empty());

    mouse(QEvent::MouseButtonPress, Qt::LeftButton, {400, 300});
    mouse(QEvent::MouseMove, Qt::LeftButton, {0, 75});
    mouse(QEvent::MouseMove, Qt::LeftButton, {200, 590});  // dragged onto the bar: held at the edge
    mouse(QEvent::MouseButtonRelease, Qt::LeftButton, {200, 187.5});
    mouse(QEvent::MouseMove, Qt::NoButton, {300, 300});    // not pressed: nothing
    const std::vector<Action> expected = {{"touchDown", 32768, 32768},
                                          {"touchMove", 0, 0},
                                          {"touchMove", 16384, 65535},
                                          {"touchUp", 16384, 16384}};
    EXPECT_EQ(m_actions, expected);
}

// 600x600 in 800x600: 100-pixel bars left and right.
TEST_F(VideoViewTest, RightButtonAndWheelMapAsMouseActions) {
    show({600, 600});
    EXPECT_EQ(m_view->pictureRect(), QRectF(100, 0, 600, 600));
    mouse(QEvent::MouseButtonPress, Qt::RightButton, {700, 600});
    mouse(QEvent::MouseMove, Qt::RightButton, {250, 150});
    mouse(QEvent::MouseButtonRelease, Qt::RightButton, {50, 300});
    wheel({400, 300}, 240);  // two steps
    wheel({400, 300}, -60);  // half a step each...
    wheel({400, 300}, -60);  // ...make one
    wheel({50, 300}, 120);   // over the bar: ignored
    const std::vector<Action> expected = {{"mouseRightDown", 65535, 65535}, {"mouseRightDrag", 16384, 16384},
                                          {"mouseRightUp", 0, 32768},       {"mouseWheel", 32768, 32768},
                                          {"mouseWheel", 32768, 32768},     {"mouseWheel", 32768, 32768}};
    EXPECT_EQ(m_actions, expected);
}

TEST_F(VideoViewTest, TouchReportsTheFirstPointOnly) {
    show({1600, 900});
    QTouchDevice* device = QTest::createTouchDevice();
    QTest::touchEvent(m_view.get(), device).press(0, QPoint(400, 300), m_view.get());
    QTest::touchEvent(m_view.get(), device).move(0, QPoint(600, 165), m_view.get()).press(1, QPoint(10, 100), m_view.get());
    QTest::touchEvent(m_view.get(), device).release(0, QPoint(800, 525), m_view.get()).release(1, QPoint(10, 100), m_view.get());
    QTest::touchEvent(m_view.get(), device).press(0, QPoint(400, 20), m_view.get());  // a touch on the bar: ignored
    QTest::touchEvent(m_view.get(), device).release(0, QPoint(400, 300), m_view.get());
    const std::vector<Action> expected = {
        {"touchDown", 32768, 32768}, {"touchMove", 49151, 13107}, {"touchUp", 65535, 65535}};
    EXPECT_EQ(m_actions, expected) << "no mouse events may be made up from the touches";
}

TEST_F(VideoViewTest, PaintsThePictureBarsAndPointer) {
    show({1600, 900}, QColor(0, 0, 255));
    m_view->setCursorPosition(32768, 32768, true);
    QImage shot = m_view->grab().toImage();
    EXPECT_EQ(shot.pixelColor(400, 30), QColor(Qt::black));      // bar
    EXPECT_EQ(shot.pixelColor(100, 200), QColor(0, 0, 255));      // picture
    EXPECT_EQ(shot.pixelColor(403, 310), QColor(Qt::white)) << "inside the arrow, below its tip";
    EXPECT_EQ(shot.pixelColor(396, 310), QColor(0, 0, 255)) << "left of the arrow";

    m_view->setCursorPosition(32768, 32768, false);
    shot = m_view->grab().toImage();
    EXPECT_EQ(shot.pixelColor(403, 310), QColor(0, 0, 255));
}

TEST_F(VideoViewTest, FramesFromAnotherThreadShowTheLatest) {
    show({320, 240});
    std::thread producer([this] {
        for (int i = 1; i <= 50; ++i) {
            QImage image(100 + i, 100, QImage::Format_RGB32);
            image.fill(Qt::green);
            m_view->presentFrame(image);
        }
    });
    producer.join();
    ASSERT_TRUE(zvtest::waitFor(
        [&] {
            QCoreApplication::processEvents();
            return m_view->currentFrame().width() == 150;
        },
        std::chrono::seconds(5)));
    m_view->clear();
    EXPECT_TRUE(m_view->currentFrame().isNull());
    EXPECT_TRUE(m_view->pictureRect().isEmpty());
}

}  // namespace
