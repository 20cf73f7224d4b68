// A third host on the panel's LAN that attacks: a TLS relay in the middle of
// a log-in, a fake panel under a known panel's name, RTP thrown at a cast's
// media ports, an eavesdropper's capture of whole casts, and code guessing
// from many addresses. Real receivers and zelvanor-cli on three test hosts
// (NetnsTrio); the attacker's tools are test programs and sockets the test
// makes in the attacker's namespace.
//
// The passcode service's own check (another panel key can neither take over
// nor release a passcode) is test_passcode_netns's
// APasscodeStaysWithThePanelKeyThatHoldsIt; it is not repeated here.
#include <gtest/gtest.h>

#include <QColor>
#include <QImage>
#include <QJsonObject>

#include <X11/Xutil.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ColourBlocks.h"
#include "NetnsTrio.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"
#include "attacker/PacketCapture.h"
#include "attacker/Spoofing.h"

namespace {

using namespace std::chrono_literals;
using zvtest::ChildProcess;
using zvtest::jsonLine;
using zvtest::statusEvent;
using zvtest::textField;

constexpr int kSources = 50;
constexpr const char* kWrongCode = "0xF3201000";
constexpr const char* kPinMismatch = "0xF3200001";

// A PulseAudio of the test's own with a silent default output: the PC's
// cast then carries sound (the monitor of that output) as it does at a desk.
class PrivatePulse {
public:
    explicit PrivatePulse(const std::string& dir) : m_dir(dir) {
        std::system(("mkdir -p " + dir).c_str());
        m_server.start({"env", "XDG_RUNTIME_DIR=" + dir, "HOME=" + dir, "pulseaudio", "-n", "--daemonize=no",
                        "--exit-idle-time=-1", "--use-pid-file=no", "-L", "module-native-protocol-unix", "-L",
                        "module-null-sink sink_name=quiet", "-L", "module-always-sink"});
        m_ready = zvtest::waitFor([&] { return access(socket().c_str(), F_OK) == 0; }, 15s);
    }
    bool ready() const { return m_ready; }
    std::string socket() const { return m_dir + "/pulse/native"; }

private:
    std::string m_dir;
    ChildProcess m_server;
    bool m_ready = false;
};

class AttackerNetns : public ::testing::Test {
protected:
    void SetUp() override {
        if (!net.ready()) GTEST_SKIP() << "no test hosts: " << net.error();
        char folder[] = "/tmp/zv-attack-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        root = folder;
    }
    void TearDown() override {
        receivers.clear();  // before their homes go
        if (!root.empty()) std::system(("rm -rf " + root).c_str());
    }

    // For the tests that cast: the PC's screen shows the colour blocks.
    void startScreen() {
        x = std::make_unique<zvtest::XvfbSession>("1280x720x24");
        ASSERT_TRUE(x->ready()) << "Xvfb did not start";
        zvtest::paintBlocks(x->connection());
    }

    // argv on test host ns with a home of its own (identity, known panels).
    std::vector<std::string> on(const std::string& ns, const std::string& home, std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        std::vector<std::string> env = {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                        "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus",
                                        "PULSE_SERVER=unix:" + (pulse && home == "pc" ? pulse->socket() : dir + "/no-sound")};
        if (x) env.push_back("DISPLAY=" + x->display());
        argv.insert(argv.begin(), env.begin(), env.end());
        return zvtest::NetnsTrio::in(ns, argv);
    }

    // A receiver on host ns; *ready gets its "ready" line.
    ChildProcess* startReceiver(const std::string& ns, const std::string& home, const std::vector<std::string>& extra,
                                QJsonObject* ready) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-receiver"), "--headless"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        receivers.push_back(std::make_unique<ChildProcess>(on(ns, home, argv), ChildProcess::Output::Capture,
                                                           ChildProcess::Input::Pipe));
        const std::string line = receivers.back()->waitForLine(statusEvent("ready"), 20s);
        EXPECT_FALSE(line.empty()) << "the receiver on " << ns << " did not get ready";
        *ready = jsonLine(line);
        return receivers.back().get();
    }

    // A GStreamer pipeline on host ns, run to its end.
    static bool gstLaunch(const std::string& ns, const std::string& pipeline) {
        return zvtest::NetnsTrio::run("ip netns exec " + ns + " gst-launch-1.0 -q " + pipeline + " >/dev/null");
    }

    // zelvanor-cli on host ns until it ends; its exit code, its lines (with
    // its log's warnings) in *lines.
    int cli(const std::string& ns, const std::string& home, const std::vector<std::string>& args,
            std::vector<std::string>* lines = nullptr) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli")};
        argv.insert(argv.end(), args.begin(), args.end());
        argv = on(ns, home, argv);
        argv.insert(argv.begin(), {"sh", "-c", "exec \"$@\" 2>&1", "zelvanor-cli"});
        ChildProcess tool(argv, ChildProcess::Output::Capture);
        tool.waitForLine([](const std::string&) { return false; }, 20s);  // read until it ends
        EXPECT_TRUE(tool.waitFinished(5s)) << "zelvanor-cli hung";
        if (lines != nullptr) *lines = tool.lines();
        return tool.exitCode();
    }
    static QJsonObject firstEvent(const std::vector<std::string>& lines, const std::string& event) {
        for (const std::string& line : lines) {
            if (textField(jsonLine(line), "event") == event) return jsonLine(line);
        }
        return {};
    }

    std::unique_ptr<ChildProcess> startCast(const std::string& code, const std::string& protocol) {
        return std::make_unique<ChildProcess>(
            on(net.pc, "pc", {zvtest::builtProgram("zelvanor-cli"), "cast", "--code", code, "--protocol", protocol,
                              "--seconds", "60"}),
            ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    }
    static bool decodedAtLeast(ChildProcess& receiver, qint64 count, std::chrono::milliseconds timeout) {
        return !receiver
                    .waitForLine([count](const std::string& line) {
                        const QJsonObject o = jsonLine(line);
                        return o.value("event") == "cast-stats" &&
                               static_cast<qint64>(o.value("framesDecoded").toDouble()) >= count;
                    }, timeout)
                    .empty();
    }
    QImage snapshot(ChildProcess& receiver) {
        const std::string path = root + "/snap-" + std::to_string(++snapshots) + ".png";
        receiver.writeLine("{\"cmd\":\"snapshot\",\"path\":\"" + path + "\"}");
        const QJsonObject answer = jsonLine(receiver.waitForLine(statusEvent("snapshot"), 5s));
        return answer.value("saved").toBool() ? QImage(QString::fromStdString(path)) : QImage();
    }
    static bool showsBlocks(const QImage& picture) {
        if (picture.isNull()) return false;
        for (int i = 0; i < 4; ++i) {
            const QPoint centre((i % 2) * picture.width() / 2 + picture.width() / 4,
                                (i / 2) * picture.height() / 2 + picture.height() / 4);
            if (!zvtest::nearColour(picture.pixelColor(centre), zvtest::kBlocks[i])) return false;
        }
        return true;
    }
    // Ends a cast from the PC and waits until the panel has seen it end.
    static void stopCast(ChildProcess& cast, ChildProcess& receiver) {
        cast.writeLine("stop");
        EXPECT_FALSE(receiver.waitForLine(statusEvent("cast-stopped"), 10s).empty());
        EXPECT_TRUE(cast.waitFinished(10s));
    }

    zvtest::NetnsTrio net{kSources};
    std::string root;
    std::unique_ptr<zvtest::XvfbSession> x;
    std::unique_ptr<PrivatePulse> pulse;
    std::vector<std::unique_ptr<ChildProcess>> receivers;
    int snapshots = 0;
};

// The attacker sits on the path to the panel's address (the PC's route to it
// goes through the attacker, which takes the address as its own) and relays
// the PC's TLS connection to the panel's second address with certificates of
// its own. The code typed on the PC is right; the key exchange binds it to
// both TLS sessions, so it cannot match across the relay.
TEST_F(AttackerNetns, ARelayInTheMiddleCannotLogInNorSeeThePicture) {
    const std::string panelSecond = net.subnet.substr(0, net.subnet.rfind('.') + 1) + "4";
    ASSERT_TRUE(zvtest::NetnsTrio::run("ip -n " + net.panel + " addr add " + panelSecond + "/24 dev eth0"));
    QJsonObject ready;
    ChildProcess& panel = *startReceiver(net.panel, "panel", {"--no-discovery"}, &ready);
    ASSERT_EQ(textField(ready, "address"), net.panelAddress) << "the code must carry the panel's first address";
    const std::string port = std::to_string(ready.value("port").toInt());

    // The path: PC -> attacker for the panel's address; the attacker keeps
    // quiet about that address on the LAN (no ARP answers) and takes it.
    ASSERT_TRUE(zvtest::NetnsTrio::run("ip netns exec " + net.attacker + " sysctl -qw net.ipv4.conf.all.arp_ignore=1"));
    ASSERT_TRUE(zvtest::NetnsTrio::run("ip -n " + net.attacker + " addr add " + net.panelAddress + "/32 dev lo"));
    ASSERT_TRUE(zvtest::NetnsTrio::run("ip -n " + net.pc + " route add " + net.panelAddress + "/32 via " +
                                       net.attackerAddress + " dev eth0"));
    ChildProcess relay(zvtest::NetnsTrio::in(net.attacker, {zvtest::builtProgram("zv-tls-relay"), "--listen", port,
                                                            "--panel", panelSecond + ":" + port}),
                       ChildProcess::Output::Capture);
    ASSERT_FALSE(relay.waitForLine(statusEvent("listening"), 5s).empty());
    zvtest::PacketCapture attackerView(net.attacker);
    ASSERT_TRUE(attackerView.ready());

    startScreen();
    auto cast = startCast(textField(ready, "code"), "udp");
    const QJsonObject outcome = jsonLine(cast->waitForLine(
        [](const std::string& line) { return statusEvent("error")(line) || statusEvent("cast")(line); }, 30s));
    EXPECT_EQ(textField(outcome, "event"), "error") << "through the relay the cast went: " << textField(outcome, "result");
    if (textField(outcome, "event") == "cast") {
        // What the attacker gets out of it, before the cast is ended.
        zvtest::waitFor([&] { return !attackerView.take().udp.empty(); }, 5s);
        cast->writeLine("stop");
    }
    ASSERT_TRUE(cast->waitFinished(10s));
    EXPECT_EQ(cast->exitCode(), 1);
    EXPECT_EQ(textField(firstEvent(cast->lines(), "error"), "code"), kWrongCode);
    EXPECT_TRUE(firstEvent(cast->lines(), "login").isEmpty());

    // It was the relay the PC spoke to, and the relay reached the panel.
    EXPECT_FALSE(relay.waitForLine(statusEvent("accepted", "from", QString::fromStdString(net.pcAddress)), 2s).empty());
    EXPECT_FALSE(relay.waitForLine(statusEvent("connected"), 2s).empty()) << "the relay did not reach the panel";
    // The panel counted a failed try from the relay, let nobody in.
    const QJsonObject refused = jsonLine(panel.waitForLine(statusEvent("refused"), 5s));
    EXPECT_EQ(textField(refused, "reason"), "wrongCode");
    EXPECT_EQ(textField(refused, "from").find(net.attackerAddress) != std::string::npos, true) << textField(refused, "from");
    EXPECT_TRUE(panel.waitForLine(statusEvent("client-joined"), 1s).empty()) << "the relay got a session";
    EXPECT_TRUE(panel.waitForLine(statusEvent("cast-started"), 1s).empty());

    // Nothing but the control connection came to the attacker from the PC.
    attackerView.stop();
    const zvtest::Capture seen = attackerView.take();
    size_t controlBytes = 0;
    for (const zvtest::TcpStream& stream : seen.tcp) {
        if (stream.source != net.pcAddress) continue;
        EXPECT_EQ(stream.destinationPort, ready.value("port").toInt()) << "a TCP stream from the PC to another port";
        controlBytes += stream.bytes.size();
    }
    EXPECT_GT(controlBytes, 0u) << "the capture did not see the PC's connection";
    size_t media = 0;
    std::string example;
    for (const zvtest::Datagram& datagram : seen.udp) {
        if (datagram.source != net.pcAddress || datagram.destination.rfind("224.", 0) == 0) continue;  // mDNS
        if (media++ == 0) example = datagram.destination + ":" + std::to_string(datagram.destinationPort);
    }
    EXPECT_EQ(media, 0u) << "UDP from the PC reached the attacker, e.g. at " << example;
    EXPECT_TRUE(zvtest::clearH264(seen).empty());
}

// The PC logged in to "Room B" with its code and pinned its key. Then Room B
// is gone, and the attacker runs a panel of its own under that name
// (announced over mDNS) and at the address the code carries.
TEST_F(AttackerNetns, AFakePanelUnderAKnownNameIsRefused) {
    QJsonObject ready;
    ChildProcess* real = startReceiver(net.panel, "panel", {"--name", "Room B"}, &ready);
    std::vector<std::string> lines;
    ASSERT_EQ(cli(net.pc, "pc", {"login", "--code", textField(ready, "code")}, &lines), 0);
    ASSERT_EQ(textField(firstEvent(lines, "login"), "key"), textField(ready, "key"));
    const std::string usedCode = textField(ready, "code");
    real->writeLine("{\"cmd\":\"quit\"}");
    ASSERT_TRUE(real->waitFinished(10s));

    // The impostor: its own key, the same name, announced on the LAN.
    QJsonObject fakeReady;
    ChildProcess& fake = *startReceiver(net.attacker, "fake", {"--name", "Room B", "--access", "open"}, &fakeReady);
    ASSERT_NE(textField(fakeReady, "key"), textField(ready, "key"));

    // Picked from the discovery list as "Room B": refused before any hello.
    QJsonObject listed;
    for (int round = 0; round < 3 && listed.isEmpty(); ++round) {
        ASSERT_EQ(cli(net.pc, "pc", {"discover", "--seconds", "3"}, &lines), 0);
        for (const std::string& line : lines) {
            if (textField(jsonLine(line), "key") == textField(fakeReady, "key")) listed = jsonLine(line);
        }
    }
    ASSERT_FALSE(listed.isEmpty()) << "the fake panel was not discovered";
    EXPECT_EQ(textField(listed, "name"), "Room B");
    const std::string fakeAddress = textField(listed, "address") + ":" + std::to_string(listed.value("port").toInt());
    EXPECT_EQ(cli(net.pc, "pc", {"login", "--address", fakeAddress, "--key", textField(listed, "key")}, &lines), 1);
    const QJsonObject error = firstEvent(lines, "error");
    EXPECT_EQ(textField(error, "code"), kPinMismatch);
    std::string text;  // the error and the log's explanation
    for (const std::string& line : lines) text += line + "\n";
    EXPECT_NE(text.find("Room B"), std::string::npos) << text;
    EXPECT_NE(text.find(textField(fakeReady, "key").substr(0, 8)), std::string::npos) << "no fake key in: " << text;
    EXPECT_NE(text.find(textField(ready, "key").substr(0, 8)), std::string::npos) << "no pinned key in: " << text;
    EXPECT_NE(text.find("forget"), std::string::npos) << text;
    EXPECT_TRUE(fake.waitForLine(statusEvent("client-joined"), 1s).empty()) << "the PC logged in to the fake panel";

    // The code that worked before, with the fake panel at the address it
    // carries: the fake does not know the code, no log-in.
    ASSERT_TRUE(zvtest::NetnsTrio::run("ip -n " + net.panel + " link set eth0 down"));
    ASSERT_TRUE(zvtest::NetnsTrio::run("ip -n " + net.attacker + " addr add " + net.panelAddress + "/24 dev eth0"));
    EXPECT_EQ(cli(net.pc, "pc", {"login", "--code", usedCode}, &lines), 1);
    EXPECT_TRUE(firstEvent(lines, "login").isEmpty());
    EXPECT_TRUE(fake.waitForLine(statusEvent("client-joined"), 1s).empty()) << "the PC logged in to the fake panel";
}

// The address, without an IPv4-in-IPv6 prefix or a port.
std::string bareAddress(std::string from) {
    if (from.rfind("::ffff:", 0) == 0) from.erase(0, 7);
    const size_t colon = from.find(':');
    return colon == std::string::npos ? from : from.substr(0, colon);
}

uint32_t readU32(const zvtest::Bytes& b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) | b[at + 3];
}

// The attacker knows what a capture shows of the cast (RTP headers stay
// readable): the panel's media ports, the PC's source ports, SSRCs and
// sequence numbers. It sends a real picture (solid magenta, plain H.264 RTP)
// at each port from its own address, and again as if from the PC, with the
// cast's SSRC.
TEST_F(AttackerNetns, RtpThrownAtTheMediaPortsIsNeverShown) {
    QJsonObject ready;
    ChildProcess& panel = *startReceiver(net.panel, "panel", {"--no-discovery"}, &ready);
    zvtest::PacketCapture panelView(net.panel);
    ASSERT_TRUE(panelView.ready());
    startScreen();
    auto cast = startCast(textField(ready, "code"), "udp");
    ASSERT_FALSE(cast->waitForLine(statusEvent("cast", "result", "started"), 15s).empty());
    ASSERT_TRUE(decodedAtLeast(panel, 1, 15s)) << "no picture decoded";

    struct Flow {
        uint16_t pcPort = 0;
        uint32_t ssrc = 0;
        uint16_t seq = 0;
        size_t bytes = 0;
    };
    std::map<uint16_t, Flow> flows;  // by the panel's port
    for (const zvtest::Datagram& d : panelView.take().udp) {
        if (d.source != net.pcAddress || d.destination != net.panelAddress || d.payload.size() < 12) continue;
        Flow& flow = flows[d.destinationPort];
        flow.pcPort = d.sourcePort;
        flow.ssrc = readU32(d.payload, 8);
        flow.seq = static_cast<uint16_t>((d.payload[2] << 8) | d.payload[3]);
        flow.bytes += d.payload.size();
    }
    ASSERT_FALSE(flows.empty()) << "the capture shows no media from the PC";
    uint16_t videoPort = 0;
    size_t most = 0;
    for (const auto& [port, flow] : flows) {
        if (flow.bytes > most) most = flow.bytes, videoPort = port;
    }

    // A decodable picture from the attacker's own address, made by a real encoder.
    ASSERT_TRUE(gstLaunch(net.attacker, "videotestsrc pattern=solid-color foreground-color=0xffff00ff num-buffers=20 ! "
                                        "video/x-raw,width=320,height=240,framerate=30/1 ! x264enc tune=zerolatency "
                                        "key-int-max=5 ! rtph264pay config-interval=-1 pt=96 ! udpsink host=" +
                                            net.panelAddress + " port=" + std::to_string(videoPort)));
    std::vector<zvtest::Bytes> picture;
    ASSERT_TRUE(zvtest::waitFor([&] {
        picture.clear();
        for (const zvtest::Datagram& d : panelView.take().udp) {
            if (d.source == net.attackerAddress && d.destinationPort == videoPort) picture.push_back(d.payload);
        }
        return picture.size() >= 20;
    }, 5s)) << "the attacker's picture did not reach the panel's host";

    // The same packets at every other port from there, and at every port as the PC.
    zvtest::UdpSender own(net.attacker, net.attackerAddress);
    zvtest::SpoofedUdpSender asPc(net.attacker);
    ASSERT_TRUE(own.ready() && asPc.ready());
    size_t fromOthers = picture.size(), spoofed = 0;
    for (const auto& [port, flow] : flows) {
        uint16_t seq = static_cast<uint16_t>(flow.seq + 1);
        for (zvtest::Bytes packet : picture) {
            if (port != videoPort && own.send(net.panelAddress, port, packet)) ++fromOthers;
            for (int i = 0; i < 4; ++i) packet[8 + i] = static_cast<uint8_t>(flow.ssrc >> (24 - 8 * i));
            packet[2] = static_cast<uint8_t>(seq >> 8);
            packet[3] = static_cast<uint8_t>(seq++);
            if (asPc.send(net.pcAddress, flow.pcPort, net.panelAddress, port, packet)) ++spoofed;
        }
    }

    // The panel says it dropped them: from others at the socket, as the PC at the key check.
    std::string lastStats;
    const bool counted = !panel.waitForLine([&](const std::string& line) {
        const QJsonObject o = jsonLine(line);
        if (o.value("event") != "cast-stats") return false;
        lastStats = line;
        return o.value("packetsFromOthers").toDouble() >= fromOthers &&
               o.value("packetsRejected").toDouble() >= static_cast<double>(picture.size());
    }, 8s).empty();
    EXPECT_TRUE(counted) << fromOthers << " from others and " << spoofed << " as the PC were sent; last statistics: "
                         << lastStats;
    // And the picture is still the PC's screen; the cast goes on.
    const qint64 decoded = static_cast<qint64>(jsonLine(lastStats).value("framesDecoded").toDouble());
    zvtest::paintBlocks(x->connection());
    EXPECT_TRUE(decodedAtLeast(panel, decoded + 1, 10s));
    const QImage shown = snapshot(panel);
    EXPECT_TRUE(showsBlocks(shown)) << "the panel shows "
                                    << (shown.isNull() ? std::string("nothing")
                                                       : shown.pixelColor(shown.width() / 4, shown.height() / 4)
                                                             .name()
                                                             .toStdString());
    EXPECT_TRUE(panel.waitForLine(statusEvent("cast-stopped"), 1s).empty()) << "the injection ended the cast";
    stopCast(*cast, panel);
}

// An eavesdropper's capture (a packet socket on the panel's host sees all
// it sends and receives) of whole casts, with sound, on each transport holds
// no H.264 parameter set and no Opus stream in the clear. A plain stream
// sent first shows what the search finds.
TEST_F(AttackerNetns, ACaptureOfEachTransportHoldsNoMediaInTheClear) {
    QJsonObject ready;
    ChildProcess& panel = *startReceiver(net.panel, "panel", {"--no-discovery"}, &ready);
    {
        zvtest::PacketCapture plainView(net.panel);
        ASSERT_TRUE(gstLaunch(net.attacker,
                              "videotestsrc num-buffers=15 ! video/x-raw,width=320,height=240,framerate=30/1 ! "
                              "x264enc tune=zerolatency ! rtph264pay config-interval=-1 ! udpsink host=" +
                                  net.panelAddress + " port=5004 audiotestsrc num-buffers=25 ! opusenc ! "
                                  "rtpopuspay ! udpsink host=" + net.panelAddress + " port=5006"));
        std::vector<std::string> h264, opus;
        EXPECT_TRUE(zvtest::waitFor([&] {
            const zvtest::Capture plain = plainView.take();
            h264 = zvtest::clearH264(plain);
            opus = zvtest::clearOpusStreams(plain);
            return !h264.empty() && !opus.empty();
        }, 5s)) << "the search misses plain media: " << h264.size() << " SPS, " << opus.size() << " Opus streams";
    }

    pulse = std::make_unique<PrivatePulse>(root + "/pulse");
    if (!pulse->ready()) std::fprintf(stderr, "no PulseAudio here: the casts carry no sound\n");
    startScreen();
    for (const char* protocol : {"udp", "tcp", "brx"}) {
        SCOPED_TRACE(protocol);
        zvtest::PacketCapture panelView(net.panel);
        ASSERT_TRUE(panelView.ready());
        auto cast = startCast(textField(ready, "code"), protocol);
        ASSERT_FALSE(cast->waitForLine(statusEvent("cast", "result", "started"), 15s).empty());
        ASSERT_TRUE(decodedAtLeast(panel, 1, 15s)) << "no picture decoded";
        if (pulse->ready() && std::string(protocol) != "brx") {  // SRT hides even the RTP headers
            EXPECT_TRUE(zvtest::waitFor([&] { return zvtest::soundPacketsFrom(panelView.take(), net.pcAddress) >= 25; },
                                        10s))
                << "the cast carries no sound";
        }
        cast->writeLine("pause");  // a resumed cast starts again with a key frame
        ASSERT_FALSE(panel.waitForLine(statusEvent("cast-paused", "paused", true), 5s).empty());
        cast->writeLine("resume");
        ASSERT_FALSE(panel.waitForLine(statusEvent("cast-paused", "paused", false), 5s).empty());
        zvtest::paintBlocks(x->connection());
        ASSERT_TRUE(decodedAtLeast(panel, 2, 10s));
        stopCast(*cast, panel);
        panelView.stop();

        if (const char* keep = std::getenv("ZV_KEEP_CAPTURES"))  // a folder, for a look at them
            panelView.writePcap(std::string(keep) + "/cast-" + protocol + ".pcap");
        const zvtest::Capture seen = panelView.take();
        // The media: what the PC sent beside its control connection (a still
        // screen of four blocks makes small pictures).
        const int control = ready.value("port").toInt();
        size_t media = 0;
        for (const zvtest::Datagram& d : seen.udp) media += d.source == net.pcAddress ? d.payload.size() : 0;
        for (const zvtest::TcpStream& s : seen.tcp)
            media += s.source == net.pcAddress && s.destinationPort != control ? s.bytes.size() : 0;
        EXPECT_GT(media, 3000u) << "the capture missed the cast";
        for (const std::string& where : zvtest::clearH264(seen)) ADD_FAILURE() << "H.264 in the clear: " << where;
        for (const std::string& stream : zvtest::clearOpusStreams(seen)) ADD_FAILURE() << "Opus in the clear: " << stream;
        // The panel's new code, for the next cast (a finished session retires it).
        const std::string next = textField(jsonLine(panel.waitForLine(statusEvent("code"), 5s)), "code");
        if (!next.empty()) ready.insert("code", QString::fromStdString(next));
    }
}

// Wrong codes from 50 addresses (one try each, so no single source is
// slowed down): the panel's budget of wrong tries runs out and it makes a
// new code; the new code still opens it.
TEST_F(AttackerNetns, WrongCodesFromFiftyAddressesRenewTheCode) {
    ASSERT_EQ(net.attackerSources.size(), static_cast<size_t>(kSources));
    QJsonObject ready;
    ChildProcess& panel = *startReceiver(net.panel, "panel", {"--no-discovery"}, &ready);
    const std::string code = textField(ready, "code");
    ASSERT_EQ(code.size(), 8u);
    // Guesses that keep the code's address part: only the last two characters change.
    const std::string alphabet = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
    const size_t tail = alphabet.find(code[6]) * 32 + alphabet.find(code[7]);
    for (int i = 0; i < kSources; ++i) {
        ASSERT_TRUE(net.setAttackerSource(net.attackerSources[static_cast<size_t>(i)]));
        const size_t value = (tail + 1 + static_cast<size_t>(i)) % 1024;
        const std::string guess = code.substr(0, 6) + alphabet[value / 32] + alphabet[value % 32];
        std::vector<std::string> lines;
        EXPECT_EQ(cli(net.attacker, "attacker", {"login", "--code", guess}, &lines), 1) << guess;
        EXPECT_TRUE(firstEvent(lines, "login").isEmpty()) << "a wrong code logged in: " << guess;
    }

    panel.waitForLine([](const std::string&) { return false; }, 500ms);  // what the panel said so far
    std::set<std::string> refusedSources;
    std::string newest = code;
    for (const std::string& line : panel.lines()) {
        const QJsonObject o = jsonLine(line);
        if (textField(o, "event") == "refused") refusedSources.insert(bareAddress(textField(o, "from")));
        if (textField(o, "event") == "code") newest = textField(o, "code");
    }
    EXPECT_GE(refusedSources.size(), 20u) << "wrong tries the panel logged, by source";
    ASSERT_NE(newest, code) << "the panel kept its code through " << kSources << " wrong tries";

    std::vector<std::string> lines;
    EXPECT_EQ(cli(net.pc, "pc", {"login", "--code", newest}, &lines), 0);
    EXPECT_EQ(textField(firstEvent(lines, "login"), "key"), textField(ready, "key"));
}

}  // namespace
