// File casting on the network-namespace link: a real receiver (full screen on
// a private Xvfb) and zelvanor-cli on two test hosts. Measures, for a 1 GB
// 1080p30 H.264 MP4 (a 10 s encoded clip joined end to end, so its bytes and
// its index are spread like a real long film's):
//   - "cast" to the first picture (the CLI's call to setCastFile until the
//     receiver's first decoded frame; both read steady_clock),
//   - a seek to the middle until the first picture there,
//   - the receiver's CPU while it plays,
// and the transfer rate of a file read whole (a 60 MB file the panel then
// refuses as a picture) against raw TCP on the same link. Prints a table.
//
//   bench_file_cast [--megabytes N] [--rounds N]
//   bench_file_cast --tcp-sink PORT | --tcp-source HOST PORT MEGABYTES   (roles)
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "NetnsPair.h"
#include "Process.h"
#include "XvfbSession.h"

namespace {

using namespace std::chrono_literals;
using zvtest::ChildProcess;

QJsonObject json(const std::string& line) { return QJsonDocument::fromJson(QByteArray::fromStdString(line)).object(); }
double steadyOf(const std::string& line) { return json(line).value("steadyMs").toDouble(); }

double nowSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Role: accept one connection, read to its end, print the rate.
int tcpSink(int port) {
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(server, 1) != 0) return 1;
    std::printf("listening\n");
    std::fflush(stdout);
    const int connection = accept(server, nullptr, nullptr);
    std::vector<char> buffer(1 << 20);
    double bytes = 0, start = 0;
    for (;;) {
        const ssize_t n = read(connection, buffer.data(), buffer.size());
        if (n <= 0) break;
        if (bytes == 0) start = nowSeconds();
        bytes += static_cast<double>(n);
    }
    std::printf("bytes=%.0f seconds=%.4f\n", bytes, nowSeconds() - start);
    return 0;
}

int tcpSource(const std::string& host, int port, int megabytes) {
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    if (connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 1;
    std::vector<char> buffer(1 << 20, 'x');
    for (int i = 0; i < megabytes; ++i) {
        size_t done = 0;
        while (done < buffer.size()) {
            const ssize_t n = write(s, buffer.data() + done, buffer.size() - done);
            if (n <= 0) return 1;
            done += static_cast<size_t>(n);
        }
    }
    close(s);
    return 0;
}

bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

double median(std::vector<double> v) { return zvbench::percentile(std::move(v), 0.5); }

}  // namespace

int main(int argc, char* argv[]) {
    if (zvbench::hasFlag(argc, argv, "--tcp-sink")) return tcpSink(std::stoi(zvbench::argValue(argc, argv, "--tcp-sink")));
    if (zvbench::hasFlag(argc, argv, "--tcp-source") && argc >= 5) {
        return tcpSource(argv[2], std::stoi(argv[3]), std::stoi(argv[4]));
    }
    const int megabytes = std::stoi(zvbench::argValue(argc, argv, "--megabytes", "1024"));
    const int rounds = std::stoi(zvbench::argValue(argc, argv, "--rounds", "3"));

    zvtest::NetnsPair net;
    if (!net.ready()) {
        std::fprintf(stderr, "no test hosts: %s\n", net.error().c_str());
        return 1;
    }
    zvtest::XvfbSession x("1920x1080x24");
    if (!x.ready()) {
        std::fprintf(stderr, "Xvfb did not start\n");
        return 1;
    }
    char folder[] = "/tmp/zv-bench-file-XXXXXX";
    if (mkdtemp(folder) == nullptr) return 1;
    const std::string root = folder;
    auto on = [&](const std::string& ns, const std::string& home, std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config", "DISPLAY=" + x.display(),
                                   "PULSE_SERVER=unix:" + dir + "/no-sound"});
        return zvtest::NetnsPair::in(ns, argv);
    };

    // The film: 10 s of 1080p30 at 8 Mbit/s, joined until it is big enough.
    std::fprintf(stderr, "making a %d MB 1080p film...\n", megabytes);
    const std::string clip = root + "/clip.mp4", film = root + "/film.mp4";
    if (!run("gst-launch-1.0 -q videotestsrc pattern=snow num-buffers=300 ! video/x-raw,width=1920,height=1080,framerate=30/1 "
             "! x264enc speed-preset=ultrafast bitrate=8000 key-int-max=60 ! h264parse ! mp4mux ! filesink location=" + clip)) {
        std::fprintf(stderr, "cannot encode the clip\n");
        return 1;
    }
    std::ifstream clipFile(clip, std::ios::binary | std::ios::ate);
    const double clipBytes = static_cast<double>(clipFile.tellg());
    const int copies = std::max(1, static_cast<int>(megabytes * 1048576.0 / clipBytes + 0.999));
    // concat with many branches stalls: join at most 10 at a time, in two levels.
    auto joinFiles = [](const std::vector<std::string>& parts, const std::string& out) {
        std::string command = "timeout 60 gst-launch-1.0 -q concat name=c ! h264parse ! mp4mux ! filesink location=" + out;
        for (const std::string& part : parts) command += " filesrc location=" + part + " ! qtdemux ! c.";
        for (int attempt = 0; attempt < 3; ++attempt) {
            if (run(command)) return true;  // now and then a join stops half way; again
        }
        return false;
    };
    std::vector<std::string> groups;
    for (int left = copies, g = 0; left > 0; left -= 10, ++g) {
        const std::string group = root + "/group" + std::to_string(g) + ".mp4";
        if (!joinFiles(std::vector<std::string>(std::min(left, 10), clip), group)) {
            std::fprintf(stderr, "cannot join the clips\n");
            return 1;
        }
        groups.push_back(group);
    }
    if (!joinFiles(groups, film)) {
        std::fprintf(stderr, "cannot join the clips\n");
        return 1;
    }
    for (const std::string& group : groups) std::remove(group.c_str());
    std::ifstream filmFile(film, std::ios::binary | std::ios::ate);
    const double filmMb = static_cast<double>(filmFile.tellg()) / 1048576.0;
    const int filmSeconds = copies * 10;

    // Raw TCP on the link.
    std::vector<double> tcpRates;
    for (int i = 0; i < rounds; ++i) {
        ChildProcess sink(zvtest::NetnsPair::in(net.a, {argv[0], "--tcp-sink", "47990"}), ChildProcess::Output::Capture);
        sink.waitForLineContaining("listening", 5s);
        ChildProcess source(zvtest::NetnsPair::in(net.b, {argv[0], "--tcp-source", net.addressA, "47990", "1024"}));
        const auto fields = zvbench::parseFields(sink.waitForLineContaining("bytes=", 60s));
        source.waitFinished(10s);
        if (fields.count("seconds")) tcpRates.push_back(std::stod(fields.at("bytes")) / 1048576.0 / std::stod(fields.at("seconds")));
    }

    ChildProcess receiver(on(net.a, "panel", {zvtest::builtProgram("zelvanor-receiver"), "--no-discovery", "--access", "open"}),
                          ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    if (receiver.waitForLine([](const std::string& l) { return l.find("\"ready\"") != std::string::npos; }, 20s).empty()) {
        std::fprintf(stderr, "the receiver did not start\n");
        return 1;
    }
    auto firstFrame = [&](bool afterSeek) {
        return receiver.waitForLine([afterSeek](const std::string& l) {
            const QJsonObject o = json(l);
            return o.value("event") == "file-first-frame" && o.value("afterSeek").toBool() == afterSeek;
        }, 20s);
    };

    std::vector<double> startMs, seekMs, cpu;
    for (int i = 0; i < rounds; ++i) {
        ChildProcess cli(on(net.b, "pc", {zvtest::builtProgram("zelvanor-cli"), "file", "--address", net.addressA, film}),
                         ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        const std::string cast = cli.waitForLineContaining("\"event\":\"file\"", 20s);
        const std::string first = firstFrame(false);
        if (cast.empty() || first.empty()) continue;
        startMs.push_back(steadyOf(first) - steadyOf(cast));

        zvbench::CpuClock clock;
        clock.start(receiver.pid());
        receiver.waitForLineContaining("never-printed", 10s);  // plays for 10 s
        cpu.push_back(clock.percent());

        cli.writeLine("{\"cmd\":\"seek\",\"seconds\":" + std::to_string(filmSeconds / 2) + "}");
        const std::string sent = cli.waitForLineContaining("\"command\":\"seek\"", 10s);
        const std::string there = firstFrame(true);
        if (!sent.empty() && !there.empty()) seekMs.push_back(steadyOf(there) - steadyOf(sent));
        cli.closeInput();
        receiver.waitForLineContaining("file-stopped", 10s);
        cli.waitFinished(10s);
    }

    // A file read whole: 60 MB that the panel fetches as a picture, then refuses.
    const std::string blob = root + "/blob.png";
    std::system(("head -c 62914560 /dev/urandom > " + blob).c_str());
    std::vector<double> fileRates;
    for (int i = 0; i < rounds; ++i) {
        ChildProcess cli(on(net.b, "pc", {zvtest::builtProgram("zelvanor-cli"), "file", "--address", net.addressA, blob}),
                         ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        const std::string started = receiver.waitForLineContaining("file-started", 20s);
        const std::string refused = receiver.waitForLineContaining("file-refused", 60s);
        if (!started.empty() && !refused.empty()) fileRates.push_back(60.0 / ((steadyOf(refused) - steadyOf(started)) / 1000.0));
        cli.closeInput();
        cli.waitFinished(10s);
    }
    receiver.writeLine("{\"cmd\":\"quit\"}");
    receiver.waitFinished(10s);
    std::system(("rm -rf " + root).c_str());

    std::printf("\nFile casting over the namespace link (veth), %d rounds; film: %.0f MB, 1080p30 H.264 8 Mbit/s, %d s\n\n",
                rounds, filmMb, filmSeconds);
    std::printf("| %-44s | %10s | %10s | %10s | %8s |\n", "measure", "median", "min", "max", "target");
    std::printf("|----------------------------------------------|------------|------------|------------|----------|\n");
    auto row = [](const char* name, const std::vector<double>& v, const char* target) {
        const double mn = v.empty() ? NAN : *std::min_element(v.begin(), v.end());
        const double mx = v.empty() ? NAN : *std::max_element(v.begin(), v.end());
        std::printf("| %-44s | %10.1f | %10.1f | %10.1f | %8s |\n", name, median(v), mn, mx, target);
    };
    row("cast to first picture (ms)", startMs, "< 1000");
    row("seek to the middle, to first picture (ms)", seekMs, "< 500");
    row("receiver CPU playing 1080p30 (% of a core)", cpu, "");
    row("file read whole over the session (MB/s)", fileRates, "");
    row("raw TCP on the same link (MB/s)", tcpRates, "");
    return startMs.empty() ? 1 : 0;
}
