// The passcode directory at campus scale: 10 000 panels registered through
// two store instances (two connections to one real redis-server, as two
// zelvanor-passcode processes have), resolve throughput and latency per
// instance for both stores, what 10 000 panels' heartbeats cost Redis, and
// what a request's proof check costs an instance (ECDSA P-256 verify).
// TLS handshakes are not included: panels and PCs keep or reuse connections
// for a heartbeat period at most, and docs/performance.md counts them apart.
//
//   bench_passcode_campus [--panels 10000] [--resolves 20000] [--window 32]
#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <hiredis/hiredis.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "BenchSupport.h"
#include "RedisServer.h"
#include "passcode/MemoryPasscodeStore.h"
#include "passcode/PanelProof.h"
#include "passcode/RedisConnection.h"
#include "passcode/RedisPasscodeStore.h"
#include "transport/TlsIdentity.h"

namespace {

using zv::PasscodeStore;

void spinUntil(const std::function<bool()>& done) {
    while (!done()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
}

// Runs count operations through start(i, finished), at most window at once;
// returns each one's latency in ms and the wall time in s.
struct Run {
    std::vector<double> latencies;
    double seconds = 0;
};
Run pipelined(int count, int window, const std::function<void(int, std::function<void()>)>& start) {
    Run run;
    run.latencies.reserve(size_t(count));
    QElapsedTimer wall;
    wall.start();
    int next = 0, done = 0, inFlight = 0;
    std::function<void()> fill = [&] {
        while (inFlight < window && next < count) {
            const int i = next++;
            ++inFlight;
            const qint64 began = wall.nsecsElapsed();
            start(i, [&, began] {
                run.latencies.push_back(double(wall.nsecsElapsed() - began) / 1e6);
                --inFlight;
                ++done;
            });
        }
    };
    while (done < count) {
        fill();
        if (done < count) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    run.seconds = double(wall.nsecsElapsed()) / 1e9;
    return run;
}

QString keyOf(int i) { return QStringLiteral("panel%1").arg(i, 38, 10, QLatin1Char('0')); }

PasscodeStore::Registration registrationOf(int i, qint64 stamp, const QString& passcode = {}) {
    PasscodeStore::Registration r;
    r.request.passcode = passcode;
    r.request.address = QStringLiteral("10.%1.%2.%3").arg(i / 65536 % 256).arg(i / 256 % 256).arg(i % 256);
    r.request.port = 47800;
    r.request.name = QStringLiteral("Room %1").arg(i);
    r.request.ttlSeconds = 60;
    r.request.keyId = keyOf(i);
    r.request.stampMs = stamp;
    r.request.certificate = QByteArray(420, 'c');  // a panel certificate's size
    r.request.signature = QByteArray(71, 's');
    r.source = r.request.address;
    return r;
}

qint64 redisStat(zv::RedisConnection& connection, const QByteArray& section, const QByteArray& field) {
    qint64 value = -1;
    bool done = false;
    connection.command({"INFO", section}, [&](const redisReply* reply) {
        done = true;
        if (!reply || reply->type != REDIS_REPLY_STRING) return;
        for (const QByteArray& line : QByteArray(reply->str, int(reply->len)).split('\n')) {
            if (line.startsWith(field + ':')) value = line.mid(field.size() + 1).trimmed().toLongLong();
        }
    });
    spinUntil([&] { return done; });
    return value;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int panels = std::stoi(zvbench::argValue(argc, argv, "--panels", "10000"));
    const int resolves = std::stoi(zvbench::argValue(argc, argv, "--resolves", "20000"));
    const int window = std::stoi(zvbench::argValue(argc, argv, "--window", "32"));

    zvtest::RedisServer redis(zvtest::RedisServer::Persistence::AppendOnly);
    if (!redis.start()) {
        std::fprintf(stderr, "redis-server did not start\n");
        return 1;
    }
    const auto target = *zv::RedisPasscodeStore::parseUrl(QString::fromStdString(redis.url(0)));
    zv::RedisPasscodeStore instanceA(target), instanceB(target);
    zv::MemoryPasscodeStore memory;
    instanceA.start();
    instanceB.start();
    zv::RedisConnection admin(target.host, target.port, 0);
    admin.start();
    spinUntil([&] { return instanceA.isAvailable() && instanceB.isAvailable() && admin.isConnected(); });
    PasscodeStore* instances[2] = {&instanceA, &instanceB};

    // 1. Registration of every panel, alternating instances.
    std::vector<QString> passcodes(static_cast<size_t>(panels));
    std::vector<QString> memoryPasscodes(static_cast<size_t>(panels));
    qint64 stamp = QDateTime::currentMSecsSinceEpoch();
    int refused = 0;
    const Run registering = pipelined(panels, window, [&](int i, std::function<void()> finished) {
        instances[i % 2]->registerPanel(registrationOf(i, stamp), [&, i, finished](const auto& answer) {
            if (answer.outcome.result == zv::PasscodeRegistry::Result::Assigned) {
                passcodes[size_t(i)] = answer.outcome.entry.passcode;
            } else {
                ++refused;
            }
            finished();
        });
    });
    for (int i = 0; i < panels; ++i) {
        memory.registerPanel(registrationOf(i, stamp),
                             [&, i](const auto& answer) { memoryPasscodes[size_t(i)] = answer.outcome.entry.passcode; });
    }
    const qint64 usedMemory = redisStat(admin, "memory", "used_memory");

    // 2. Resolves per instance, and the memory store for comparison.
    std::printf("\nPasscode directory, %d panels, %d resolves per instance, %d in flight (2-core machine)\n\n", panels,
                resolves, window);
    std::printf("| store / instance | resolves/s | p50 ms | p99 ms |\n|---|---|---|---|\n");
    auto resolveRun = [&](PasscodeStore* store, const std::vector<QString>& codes, const char* label) {
        int found = 0;
        const Run run = pipelined(resolves, window, [&](int i, std::function<void()> finished) {
            store->resolve(codes[size_t(i % panels)], QStringLiteral("10.200.0.1"),
                           [&, finished](const auto& answer) {
                               if (answer.result == PasscodeStore::Lookup::Found) ++found;
                               finished();
                           });
        });
        std::printf("| %s | %.0f | %.3f | %.3f |\n", label, resolves / run.seconds,
                    zvbench::percentile(run.latencies, 0.50), zvbench::percentile(run.latencies, 0.99));
        if (found != resolves) std::printf("  (%d of %d found)\n", found, resolves);
    };
    resolveRun(&instanceA, passcodes, "redis, instance 1");
    resolveRun(&instanceB, passcodes, "redis, instance 2");
    resolveRun(&memory, memoryPasscodes, "memory (one box)");

    // 3. Heartbeats: every panel renews once; Redis's commands and CPU.
    zvbench::CpuClock redisCpu;
    redisCpu.start(redis.pid());
    const qint64 commandsBefore = redisStat(admin, "stats", "total_commands_processed");
    ++stamp;
    const Run renewing = pipelined(panels, window, [&](int i, std::function<void()> finished) {
        instances[i % 2]->registerPanel(registrationOf(i, stamp, passcodes[size_t(i)]),
                                        [finished](const auto&) { finished(); });
    });
    const double cpuPercent = redisCpu.percent();
    const qint64 commands = redisStat(admin, "stats", "total_commands_processed") - commandsBefore - 1;
    const double cpuPerHeartbeatMs = cpuPercent / 100.0 * renewing.seconds * 1000.0 / panels;

    // 4. The proof check an instance does for every register.
    QTemporaryDir keys;
    const auto panelIdentity = zv::loadOrCreateTlsIdentity(keys.filePath("panel"), "panel", zv::kPanelIdentity);
    zv::passcode::PanelSigner signer(panelIdentity->privateKey, panelIdentity->certificate);
    zv::wire::Register request;
    request.set_address("10.1.2.3");
    request.set_port(47800);
    request.set_ttl(60);
    signer.sign(request, keyOf(0), stamp);
    const int verifies = 2000;
    QElapsedTimer verifyTime;
    verifyTime.start();
    for (int i = 0; i < verifies; ++i) zv::passcode::verifyProof(request.proof(), zv::passcode::signedBytes(request, keyOf(0)));
    const double verifyMs = double(verifyTime.nsecsElapsed()) / 1e6 / verifies;

    const double heartbeatsPerSecond = panels / 20.0;  // ttl 60 s, renewed every 20 s
    std::printf("\n| measure | value |\n|---|---|\n");
    std::printf("| registering %d panels through 2 instances | %.1f s (%.0f/s), %d refused |\n", panels,
                registering.seconds, panels / registering.seconds, refused);
    std::printf("| Redis memory with %d panels | %.1f MB (%.0f B/panel) |\n", panels, usedMemory / 1e6,
                double(usedMemory) / panels);
    std::printf("| heartbeat round: %d renewals | %.2f s, p50 %.3f ms, p99 %.3f ms |\n", panels, renewing.seconds,
                zvbench::percentile(renewing.latencies, 0.50), zvbench::percentile(renewing.latencies, 0.99));
    std::printf("| Redis commands per heartbeat | %.2f |\n", double(commands) / panels);
    std::printf("| Redis CPU per heartbeat | %.3f ms |\n", cpuPerHeartbeatMs);
    std::printf("| %d panels at ttl 60 s (%.0f heartbeats/s) on Redis | %.0f commands/s, %.1f %% of a core |\n",
                panels, heartbeatsPerSecond, heartbeatsPerSecond * commands / panels,
                heartbeatsPerSecond * cpuPerHeartbeatMs / 10.0);
    std::printf("| proof check (ECDSA P-256 verify) per register | %.3f ms |\n", verifyMs);
    std::printf("| panels one Redis serves at half a core | %.0f |\n", 0.5 / (cpuPerHeartbeatMs / 1000.0) * 20.0);
    std::printf("| panels one instance serves at half a core (proof checks alone) | %.0f |\n",
                0.5 / (verifyMs / 1000.0) * 20.0);
    return 0;
}
