// File casting end to end: zelvanor-cli on one test host lends files the test
// makes (pictures with Qt, clips with GStreamer) to the real receiver on the
// other, which shows them full screen on the test's X server; the screen's
// pixels, the receiver's status lines and the PC's play info are checked
// while the file is steered the way the client's pages do.
#include <gtest/gtest.h>

#include <QColor>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>

#include <X11/Xutil.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"

namespace {

using namespace std::chrono_literals;
using zvtest::ChildProcess;
using zvtest::jsonLine;
using zvtest::kBlocks;
using zvtest::statusEvent;
constexpr auto near = zvtest::nearColour;

class FileNetns : public ::testing::Test {
protected:
    void SetUp() override {
        if (!net.ready()) GTEST_SKIP() << "no test hosts: " << net.error();
        ASSERT_TRUE(x.ready()) << "Xvfb did not start";
        char folder[] = "/tmp/zv-file-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        root = folder;
    }
    void TearDown() override {
        if (cli) cli->stop();
        if (receiver) receiver->stop();
        if (pulse) pulse->stop();
        if (!root.empty()) std::system(("rm -rf " + root).c_str());
    }

    std::vector<std::string> on(const std::string& ns, const std::string& home, std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus", "DISPLAY=" + x.display(),
                                   "PULSE_SERVER=unix:" + (pulseSocket.empty() ? dir + "/no-sound" : pulseSocket)});
        return zvtest::NetnsPair::in(ns, argv);
    }

    // A sound server with a null sink, as a room PC's sound card; false when
    // PulseAudio is not installed.
    bool startSound() {
        const std::string run = root + "/pulse-run";
        std::system(("mkdir -p " + run).c_str());
        pulse = std::make_unique<ChildProcess>(std::vector<std::string>{
            "env", "HOME=" + run, "XDG_RUNTIME_DIR=" + run, "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
            "--use-pid-file=no", "-L", "module-native-protocol-unix", "-L", "module-null-sink sink_name=vsink",
            "-L", "module-always-sink"});
        pulseSocket = run + "/pulse/native";
        return zvtest::waitFor([&] { return !pactl("info").empty(); }, 10s);
    }
    std::string pactl(const std::string& what) {
        std::string out;
        FILE* pipe = popen(("PULSE_SERVER=unix:" + pulseSocket + " pactl " + what + " 2>/dev/null").c_str(), "r");
        if (pipe == nullptr) return out;
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
        pclose(pipe);
        return out;
    }

    // The receiver full screen on the test's X server.
    void startReceiver(const std::string& access = "open") {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-receiver"), "--no-discovery", "--access", access};
        receiver = std::make_unique<ChildProcess>(on(net.a, "panel", argv), ChildProcess::Output::Capture,
                                                  ChildProcess::Input::Pipe);
        ASSERT_FALSE(receiver->waitForLine(statusEvent("ready"), 20s).empty());
    }
    void startFile(const std::string& path, const std::vector<std::string>& extra = {}) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli"), "file", "--address", net.addressA, path};
        argv.insert(argv.end(), extra.begin(), extra.end());
        cli = std::make_unique<ChildProcess>(on(net.b, "pc", argv), ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        ASSERT_FALSE(cli->waitForLine(statusEvent("file", "result", "started"), 20s).empty());
    }

    // A 400x400 picture of the four colour blocks.
    std::string makePicture(const char* format) {
        QImage picture(400, 400, QImage::Format_RGB32);
        QPainter painter(&picture);
        for (int i = 0; i < 4; ++i) painter.fillRect((i % 2) * 200, (i / 2) * 200, 200, 200, kBlocks[i]);
        painter.end();
        const std::string path = root + "/blocks." + format;
        EXPECT_TRUE(picture.save(QString::fromStdString(path), format, 95));
        return path;
    }
    // A clip made with gst-launch (SINK stands for the file); false when an element is missing.
    bool makeClip(const std::string& path, std::string pipeline) {
        pipeline.replace(pipeline.find("SINK"), 4, "filesink location=" + path);
        const std::string command = "gst-launch-1.0 -q " + pipeline + " >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    }

    QColor screenPixel(int px, int py) {
        Display* d = x.connection();
        XImage* image = XGetImage(d, DefaultRootWindow(d), px, py, 1, 1, AllPlanes, ZPixmap);
        if (image == nullptr) return {};
        const unsigned long pixel = XGetPixel(image, 0, 0);
        XDestroyImage(image);
        return QColor((pixel >> 16) & 0xff, (pixel >> 8) & 0xff, pixel & 0xff);
    }
    // Waits until every probe shows its colour.
    bool screenShows(const std::vector<std::pair<QPoint, QColor>>& probes, std::chrono::milliseconds timeout,
                     std::string* seen = nullptr) {
        return zvtest::waitFor([&] {
            for (const auto& [point, colour] : probes) {
                const QColor got = screenPixel(point.x(), point.y());
                if (!near(got, colour)) {
                    if (seen != nullptr) *seen = point.x() == 0 && point.y() == 0 ? "" : got.name().toStdString();
                    return false;
                }
            }
            return true;
        }, timeout);
    }
    void command(const std::string& json) { cli->writeLine(json); }
    // The PC's play info (its poll of the panel) until accept holds.
    QJsonObject infoUntil(const std::function<bool(const QJsonObject&)>& accept, std::chrono::milliseconds timeout) {
        const auto end = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < end) {
            command("{\"cmd\":\"info\"}");
            const std::string line = cli->waitForLine(statusEvent("file-info"), 3s);
            const QJsonObject info = jsonLine(line);
            if (!line.empty() && accept(info)) return info;
            std::this_thread::sleep_for(100ms);  // the panel moves on; ask again
        }
        return {};
    }

    zvtest::NetnsPair net;
    zvtest::XvfbSession x{"1280x720x24"};
    std::string root;
    std::unique_ptr<ChildProcess> receiver;
    std::unique_ptr<ChildProcess> cli;
    std::unique_ptr<ChildProcess> pulse;
    std::string pulseSocket;
};

// The 400x400 picture fitted on 1280x720 is 720x720 at x 280..1000.
const QColor black(Qt::black);
std::vector<std::pair<QPoint, QColor>> quadrants(const int order[4]) {
    return {{QPoint(460, 180), kBlocks[order[0]]}, {QPoint(820, 180), kBlocks[order[1]]},
            {QPoint(460, 540), kBlocks[order[2]]}, {QPoint(820, 540), kBlocks[order[3]]}};
}

TEST_F(FileNetns, PicturesAreShownAndFollowZoomTurnAndPan) {
    startReceiver();
    for (const char* format : {"png", "jpg"}) {
        SCOPED_TRACE(format);
        startFile(makePicture(format));
        ASSERT_FALSE(receiver->waitForLine(statusEvent("file-playing"), 20s).empty());
        const int upright[4] = {0, 1, 2, 3};
        std::string seen;
        auto fitted = quadrants(upright);
        fitted.push_back({QPoint(100, 200), black});
        EXPECT_TRUE(screenShows(fitted, 10s, &seen)) << "the fitted picture is not on the screen: " << seen;

        // A quarter turn clockwise: the left column moves to the top.
        command("{\"cmd\":\"rotate\",\"degrees\":90}");
        const int turned[4] = {2, 0, 3, 1};
        EXPECT_TRUE(screenShows(quadrants(turned), 5s, &seen)) << "not turned: " << seen;
        command("{\"cmd\":\"rotate\",\"degrees\":360}");
        EXPECT_TRUE(screenShows(quadrants(upright), 5s, &seen)) << "not upright again: " << seen;

        // Twice the fit covers the bars; a pan down shows the top blocks lower.
        command("{\"cmd\":\"scale\",\"percent\":200}");
        EXPECT_TRUE(screenShows({{QPoint(100, 200), kBlocks[0]}, {QPoint(100, 600), kBlocks[2]}}, 5s, &seen))
            << "not zoomed: " << seen;
        command("{\"cmd\":\"translate\",\"dx\":0,\"dy\":1024}");
        EXPECT_TRUE(screenShows({{QPoint(100, 600), kBlocks[0]}}, 5s, &seen)) << "not moved: " << seen;
        // A pan beyond the picture's edge stops at the edge: nothing black.
        command("{\"cmd\":\"translate\",\"dx\":2048,\"dy\":0}");
        EXPECT_FALSE(receiver->waitForLine(statusEvent("file-view", "panX", 80), 5s).empty());
        EXPECT_TRUE(screenShows({{QPoint(5, 5), kBlocks[0]}}, 5s, &seen)) << seen;

        cli->closeInput();
        EXPECT_FALSE(receiver->waitForLine(statusEvent("file-stopped"), 10s).empty());
        EXPECT_TRUE(cli->waitFinished(10s));
        EXPECT_EQ(cli->exitCode(), 0);
    }
}

TEST_F(FileNetns, VideoPlaysPausesSeeksAndTheProgressFollowsThePanel) {
    const std::string mp4 = root + "/clip.mp4";
    ASSERT_TRUE(makeClip(mp4, "videotestsrc pattern=blue num-buffers=300 ! video/x-raw,width=640,height=360,framerate=30/1 "
                              "! x264enc key-int-max=30 ! h264parse ! mp4mux name=m ! SINK "
                              "audiotestsrc num-buffers=430 ! audioconvert ! avenc_aac ! m."))
        << "cannot make an MP4 clip";
    ASSERT_TRUE(startSound()) << "no sound server";
    startReceiver();
    startFile(mp4);
    const QJsonObject playing = jsonLine(receiver->waitForLine(statusEvent("file-playing"), 20s));
    ASSERT_FALSE(playing.isEmpty());
    EXPECT_EQ(playing.value("width").toInt(), 640);
    EXPECT_GE(playing.value("audioStreams").toInt(), 1) << "no sound stream played";
    EXPECT_NEAR(playing.value("durationMs").toDouble(), 10000, 300);
    std::string seen;
    EXPECT_TRUE(screenShows({{QPoint(640, 360), QColor(Qt::blue)}}, 10s, &seen)) << "no video picture: " << seen;
    // The sound reaches the sound server, at full volume for now.
    EXPECT_TRUE(zvtest::waitFor([&] { return pactl("list sink-inputs").find("Sink Input #") != std::string::npos; }, 10s))
        << "no sound stream at the sound server";
    const auto fullVolume = [&] { return pactl("list sink-inputs").find("/ 100% /") != std::string::npos; };
    EXPECT_TRUE(fullVolume());

    // The PC's progress follows the panel's.
    QJsonObject info = infoUntil([](const QJsonObject& i) { return i.value("position").toInt() >= 2; }, 10s);
    ASSERT_FALSE(info.isEmpty()) << "the position does not move";
    EXPECT_EQ(info.value("duration").toInt(), 10);
    EXPECT_EQ(info.value("state").toString(), "playing");

    command("{\"cmd\":\"pause\"}");
    ASSERT_FALSE(receiver->waitForLine(statusEvent("file-state", "state", "paused"), 5s).empty());
    info = infoUntil([](const QJsonObject& i) { return i.value("state") == "paused"; }, 5s);
    const int pausedAt = info.value("position").toInt();
    EXPECT_EQ(infoUntil([](const QJsonObject& i) { return i.value("state") == "paused"; }, 3s).value("position").toInt(),
              pausedAt);

    command("{\"cmd\":\"seek\",\"seconds\":7}");
    info = infoUntil([](const QJsonObject& i) { return i.value("position").toInt() >= 6; }, 5s);
    EXPECT_FALSE(info.isEmpty()) << "the seek did not reach the panel";
    command("{\"cmd\":\"volume\",\"value\":40}");
    EXPECT_FALSE(receiver->waitForLine(statusEvent("file-state", "volume", 40), 5s).empty());
    EXPECT_FALSE(infoUntil([](const QJsonObject& i) { return i.value("volume") == 40; }, 5s).isEmpty());
    EXPECT_TRUE(zvtest::waitFor([&] { return !fullVolume() && pactl("list sink-inputs").find("Volume:") != std::string::npos; }, 5s))
        << "the sound server still plays at full volume:\n" << pactl("list sink-inputs");
    command("{\"cmd\":\"resume\"}");
    EXPECT_FALSE(infoUntil([](const QJsonObject& i) { return i.value("state") == "ended"; }, 10s).isEmpty())
        << "the clip did not play to its end";
}

TEST_F(FileNetns, OtherFormatsPlayAndAnUnplayableFileIsRefusedWithAReason) {
    struct Clip {
        const char* name;
        std::string pipeline;
        bool video;
    };
    const std::vector<Clip> clips = {
        {"clip.webm", "videotestsrc num-buffers=60 ! video/x-raw,width=320,height=240,framerate=30/1 ! vp9enc deadline=1 "
                      "! webmmux name=m ! SINK audiotestsrc num-buffers=90 ! audioconvert ! opusenc ! m.", true},
        {"tone.wav", "audiotestsrc num-buffers=100 ! audioconvert ! wavenc ! SINK", false},
        {"tone.mp3", "audiotestsrc num-buffers=100 ! audioconvert ! lamemp3enc ! SINK", false},
    };
    startReceiver();
    for (const Clip& clip : clips) {
        SCOPED_TRACE(clip.name);
        const std::string path = root + "/" + clip.name;
        ASSERT_TRUE(makeClip(path, clip.pipeline));
        startFile(path);
        const QJsonObject playing = jsonLine(receiver->waitForLine(statusEvent("file-playing"), 20s));
        ASSERT_FALSE(playing.isEmpty());
        EXPECT_GE(playing.value("audioStreams").toInt(), 1);
        EXPECT_EQ(playing.value("width").toInt() > 0, clip.video);
        cli->closeInput();
        EXPECT_FALSE(receiver->waitForLine(statusEvent("file-stopped"), 10s).empty());
        EXPECT_TRUE(cli->waitFinished(10s));
    }

    // Bytes no player understands: refused, and the PC is told why.
    const std::string junk = root + "/notes.mp4";
    std::system(("head -c 300000 /dev/urandom > " + junk).c_str());
    startFile(junk);
    const QJsonObject refused = jsonLine(receiver->waitForLine(statusEvent("file-refused"), 20s));
    EXPECT_NE(refused.value("text").toString().indexOf("cannot play notes.mp4"), -1);
    const std::string told = cli->waitForLine(statusEvent("exception", "type", 32797), 10s);
    std::string all;
    for (const std::string& line : cli->lines()) all += line + "\n";
    EXPECT_NE(told.find("cannot play notes.mp4"), std::string::npos) << all;
    EXPECT_TRUE(cli->waitFinished(10s));
    EXPECT_EQ(cli->exitCode(), 1);
}

TEST_F(FileNetns, AFileDeletedWhileItPlaysEndsTheCastWithANotice) {
    const std::string mp4 = root + "/long.mp4";
    ASSERT_TRUE(makeClip(mp4, "videotestsrc num-buffers=900 ! video/x-raw,width=320,height=240,framerate=30/1 "
                              "! x264enc ! h264parse ! mp4mux ! SINK"));
    startReceiver();
    startFile(mp4);
    ASSERT_FALSE(receiver->waitForLine(statusEvent("file-playing"), 20s).empty());
    std::remove(mp4.c_str());
    const std::string ended = cli->waitForLine(statusEvent("exception", "type", 32792), 5s);
    EXPECT_NE(ended.find("was deleted while it played"), std::string::npos) << ended;
    EXPECT_FALSE(receiver->waitForLine(statusEvent("file-stopped", "reason", "vanished"), 5s).empty());
    EXPECT_TRUE(cli->waitFinished(10s));
}

// Under the "approve" rule an unknown PC's file waits for the panel's user:
// refused, the PC hears the panel's words; allowed, it plays, and the PC is
// known from then on.
TEST_F(FileNetns, AnUnknownPcsFileWaitsForThePanelsUser) {
    const std::string png = makePicture("png");
    startReceiver("approve");
    auto ask = [&] {
        const QJsonObject asked = jsonLine(receiver->waitForLine(statusEvent("approval-needed", "kind", "file"), 20s));
        EXPECT_FALSE(asked.isEmpty());
        return asked.value("client").toVariant().toLongLong();
    };
    auto answer = [&](qint64 client, bool approved) {
        receiver->writeLine(QJsonDocument(QJsonObject{{"cmd", "approve"}, {"client", client}, {"approved", approved}})
                                .toJson(QJsonDocument::Compact).toStdString());
    };

    startFile(png);
    // The panel announces that it plays files.
    qint64 caps = 0;
    for (const std::string& line : cli->lines()) {
        if (statusEvent("login")(line)) caps = jsonLine(line).value("caps").toVariant().toLongLong();
    }
    EXPECT_NE(caps & (1 << 2), 0);  // the file-cast bit
    EXPECT_FALSE(cli->waitForLine(statusEvent("error", "code", "0xF3200003"), 20s).empty());  // waiting popup
    answer(ask(), false);
    const std::string told = cli->waitForLine(statusEvent("exception", "type", 32797), 10s);
    EXPECT_NE(told.find("not allowed this PC to show files"), std::string::npos) << told;
    EXPECT_TRUE(cli->waitFinished(10s));

    startFile(png);
    answer(ask(), true);
    ASSERT_FALSE(receiver->waitForLine(statusEvent("file-playing"), 20s).empty());
    cli->closeInput();
    EXPECT_TRUE(cli->waitFinished(10s));

    // Known now: the next file plays without a question.
    startFile(png);
    ASSERT_FALSE(receiver->waitForLine(statusEvent("file-playing"), 20s).empty());
    int questions = 0;
    for (const std::string& line : receiver->lines()) questions += line.find("approval-needed") != std::string::npos;
    EXPECT_EQ(questions, 2);
    cli->closeInput();
    EXPECT_TRUE(cli->waitFinished(10s));
}

}  // namespace
