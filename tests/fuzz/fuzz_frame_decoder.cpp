// Fuzz target: arbitrary bytes through the frame decoder (whole, and cut at a
// point the input chooses), then every envelope through the dispatchers of
// real readers: the PC's session (log-in answers and session messages, with
// the cast's and the file cast's handlers), the panel's service (the first
// message of a connection and a session's messages, with the panel's cast,
// share, file and device-sharing handlers), the passcode service and both of its clients. Nothing touches a network: the
// channels the readers answer on wrap sockets that never connect. The bytes
// are also tried as the payload of one frame, as a typed connect code, as
// the player's packet stream (cut where the input says) and as the
// reverse screen's touch JSON.
// With ZV_FUZZ_STANDALONE it is a plain program that replays the samples in
// tests/fuzz/corpus, built-in samples, their mutations and random bytes.
#include <cstddef>
#include <cstdint>

#include <glog/logging.h>
#include <google/protobuf/stubs/logging.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTcpSocket>

#include <memory>

#include "CastService.h"
#include "CodeKeeper.h"
#include "DeviceShareService.h"
#include "PanelService.h"
#include "ShareService.h"
#include "casting/Dexo.h"
#include "player/DexoPacket.h"
#include "file/FileCastService.h"
#include "passcode/PasscodeClient.h"
#include "passcode/PasscodeRegistration.h"
#include "passcode/PasscodeService.h"
#include "protocol/ConnectCode.h"
#include "protocol/WireCodec.h"
#include "session/CastSession.h"
#include "session/ClientSession.h"
#include "session/ShareSession.h"
#include "session/FileCastSession.h"
#include "session/DeviceShareSession.h"
#include "transport/KnownPanels.h"
#include "transport/MessageChannel.h"

namespace {

constexpr char kPanelCode[] = "7K3M9Q2T";

// Quiet, and a Qt application for the readers' timers; once per process.
void setUpOnce() {
    static bool done = false;
    if (done) return;
    done = true;
    // ZV_FUZZ_LOG=1 shows what the readers make of the inputs.
    FLAGS_minloglevel = qEnvironmentVariableIsSet("ZV_FUZZ_LOG") ? google::GLOG_INFO : google::GLOG_FATAL;
    google::protobuf::SetLogHandler(nullptr);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    static int argc = 1;
    static char name[] = "fuzz_frame_decoder";
    static char* argv[] = {name, nullptr};
    new QCoreApplication(argc, argv);
}

// A channel that never had a connection: what readers send into it is dropped.
zv::MessageChannel* detachedChannel(QObject* parent) { return new zv::MessageChannel(new QTcpSocket, parent); }

// One set of readers, fresh for every input so that no input's state hides
// another's fault.
struct Readers {
    QObject scope;  // parent of the log-in and passcode channels, gone after the readers
    zv::ClientSession session{{[](tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>& fill) {
                                   tagNotifyExceptionParams_ params{};
                                   if (fill) fill(params);
                               }},
                              zv::CodeResolver::DiscoveryLookup{},
                              std::make_shared<zv::KnownPanels>(QStringLiteral("/nonexistent/known-panels"))};
    zv::CastSession cast{&session, [](tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&) {},
                         [](uint32_t) {}};
    zv::FileCastSession fileCast{&session, [](tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&) {},
                                 [](uint32_t) {}};
    receiver::CodeKeeper codes{0x0a000001, QString::fromLatin1(kPanelCode), 0};
    receiver::PanelService panel{panelSettings(), QSslKey(), QSslCertificate(), QStringLiteral("0123456789abcdef"),
                                 &codes};
    // Approval asked first: a cast request never starts media here.
    receiver::CastService panelCast{castSettings(), &panel};
    zv::ShareSession share{&session, [](tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&) {}};
    // Approval asked first as well: a share request never starts capture.
    receiver::ShareService panelShare{shareSettings(), &panel};
    // Its client is not approved: a file start is refused before any player starts.
    receiver::FileCastService panelFile{&panel};
    // Devices under approval: a request is refused before any media start.
    receiver::DeviceShareService panelDevices{deviceSettings(), &panel};
    zv::DeviceShareSession devices{&session};
    // No key: nothing listens, and proofs meet a service key id of "".
    zv::PasscodeService passcodeService{QSslKey(), QSslCertificate(), [] { return qint64(1000); }};
    zv::PasscodeClient passcodeClient;
    zv::PasscodeRegistration registration{zv::PasscodeRegistration::Settings{}};
    qint64 joined = 0;

    Readers() {
        // One client in session with the panel, for its session messages.
        zv::wire::Hello hello;
        hello.set_major(zv::kProtocolMajor);
        hello.set_host("fuzz");
        panel.greet(detachedChannel(&panel), zv::wrap(hello));
        if (!panel.clients().isEmpty()) joined = panel.clients().front().id;
    }

    static receiver::PanelService::Settings panelSettings() {
        receiver::PanelService::Settings settings;
        settings.name = QStringLiteral("fuzz");
        return settings;
    }
    static receiver::CastService::Settings castSettings() {
        receiver::CastService::Settings settings;
        settings.requireApproval = true;
        return settings;
    }

    static receiver::DeviceShareService::Settings deviceSettings() {
        receiver::DeviceShareService::Settings settings;
        settings.requireApproval = true;
        return settings;
    }

    static receiver::ShareService::Settings shareSettings() {
        receiver::ShareService::Settings settings;
        settings.requireApproval = true;
        settings.displayName = QStringLiteral(":65000");  // no X server: nothing is injected
        return settings;
    }

    void read(const zv::wire::Envelope& envelope) {
        session.handle(envelope);
        zv::MessageChannel* attempt = detachedChannel(&scope);
        zv::PanelAddress address;
        address.address = QStringLiteral("10.0.0.1");
        address.port = zv::kDefaultControlPort;
        if (session.takeAnswer(attempt, address, envelope, [](const zv::ClientSession::LoginResult&) {}) !=
            zv::Dispatch::Handled) {
            delete attempt;
        }

        panel.greet(detachedChannel(&panel), envelope);
        panel.handle(joined, envelope);
        panel.handle(joined + 1000, envelope);  // a client the panel does not know

        zv::MessageChannel* request = detachedChannel(&scope);
        passcodeService.handle(request, envelope);
        passcodeClient.handle(envelope);
        registration.handle(envelope);
    }
};

void readAll(zv::FrameDecoder& decoder, const QByteArray& bytes, Readers* readers) {
    for (const zv::wire::Envelope& envelope : decoder.feed(bytes)) {
        if (readers != nullptr) readers->read(envelope);
    }
    if (decoder.hasError() && decoder.errorString().isEmpty()) __builtin_trap();  // an error always says why
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setUpOnce();
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));

    {
        Readers readers;
        zv::FrameDecoder whole;
        readAll(whole, bytes, &readers);

        // The same stream in two pieces must give the same result.
        if (size > 0) {
            const int cut = data[0] % int(size);
            zv::FrameDecoder split;
            readAll(split, bytes.left(cut), nullptr);
            readAll(split, bytes.mid(cut), nullptr);
            if (split.hasError() != whole.hasError()) __builtin_trap();
        }

        // The bytes as the payload of one well-formed frame reach the envelope parsing.
        if (size > 0 && size <= zv::kMaxFrameBytes) {
            QByteArray frame(4, '\0');
            frame[0] = char(size >> 24);
            frame[1] = char(size >> 16);
            frame[2] = char(size >> 8);
            frame[3] = char(size);
            zv::FrameDecoder payload;
            readAll(payload, frame + bytes, &readers);
        }
    }
    // What the readers left to the event loop (deferred deletes, queued calls).
    QCoreApplication::sendPostedEvents();

    {
        // The player's stream, whole and cut in two, gives the same packets, each within bounds.
        zv::player::PacketReader whole(1 << 20), split(1 << 20);
        whole.append(data, size);
        const size_t cut = size > 0 ? data[0] % size : 0;
        split.append(data, cut);
        split.append(data + cut, size - cut);
        zv::player::Packet a, b;
        for (;;) {
            const bool gotA = whole.next(&a);
            if (gotA != split.next(&b)) __builtin_trap();
            if (!gotA) break;
            if (a.payload != b.payload || a.kind != b.kind) __builtin_trap();
            if ((a.kind != DEXO_KIND_VIDEO && a.kind != DEXO_KIND_AUDIO) || a.payload.size() > DEXO_MAX_PAYLOAD) {
                __builtin_trap();
            }
        }
        // Touch JSON: whatever is accepted is on the screen.
        zv::wire::ShareInput input;
        QString why;
        if (zv::ShareSession::parseInput(bytes, &input, &why)) {
            if (input.x() < 0 || input.x() > 65535 || input.y() < 0 || input.y() > 65535) __builtin_trap();
            if (input.type() == zv::wire::ShareInput::TYPE_UNSPECIFIED) __builtin_trap();
        } else if (why.isEmpty()) {
            __builtin_trap();  // a refusal always says why
        }
    }

    if (size <= 64) {
        const QString code = zv::code::normalize(QString::fromUtf8(bytes));
        if (zv::code::isValidCode(code) && code.size() == zv::code::kConnectCodeLength) {
            // Every code keeps its 20 secret bits, and a carried address comes back.
            if (zv::code::secretBits(code) < zv::code::kMinSecretBits) __builtin_trap();
            const QList<quint32> candidates = zv::code::addressCandidates(code, {0x0A000001u, 0x7F000001u});
            if (candidates.size() > 2) __builtin_trap();
            if (const auto address = zv::code::decodeAddress(code)) {
                if (zv::code::decodeAddress(zv::code::makeCode(*address, 0)) != address) __builtin_trap();
            }
        }
    }
    return 0;
}

#ifdef ZV_FUZZ_STANDALONE
#include "StandaloneDriver.h"

int main(int argc, char** argv) {
    std::vector<QByteArray> samples = {
        // heartbeat 7; bye "x"; castPending; a body of a later version
        QByteArray::fromHex("0000000708029a01020807"),
        QByteArray::fromHex("000000080802aa01030a0178"),
        QByteArray::fromHex("0000000508028a0300"),
        QByteArray::fromHex("000000050802c20c00"),
        // hello of protocol 3.1 with an unknown field; welcome of 2.0; refused
        QByteArray::fromHex("0000000f080338018201080803100192030178"),
        QByteArray::fromHex("0000000c08028a01070802180128e807"),
        QByteArray::fromHex("0000000a080292010508041201" "78"),
        // file_start (id 1, "a.mp4", 10 bytes, video); file_read; file_data; file_end
        QByteArray::fromHex("00000012080282090d08011205612e6d703418" "0a2002"),
        QByteArray::fromHex("0000000d08029a09080801100118002004"),
        QByteArray::fromHex("000000100802a2090b080110011800220374787a"),
        QByteArray::fromHex("0000000b0802ea0906080110031a00"),
        QByteArray::fromHex("00000000"),
        QByteArray::fromHex("ffffffff"),
        QByteArray::fromHex("000000010f"),
        QByteArray("012g-28t5"),
        // a player packet: video, key, 4 bytes of H.264 start code + IDR
        QByteArray::fromHex("5a44504b" "0101" "0000" "04000000" "00000000" "0000000000000000" "00000165"),
        QByteArray("{\"touchControl\":{\"id\":1,\"timestamp\":1,\"ctrlType\":\"touchDown\",\"x\":5,\"y\":65535}}"),
    };
    // The reverse screen's messages, framed.
    auto framed = [](const google::protobuf::Message& body) {
        const std::string bytes = zv::wrap(body).SerializeAsString();
        QByteArray frame(4, '\0');
        frame[2] = char(bytes.size() >> 8);
        frame[3] = char(bytes.size());
        return frame + QByteArray::fromStdString(bytes);
    };
    zv::wire::ShareRequest request;
    request.set_video_port(5000);
    request.set_rtcp_port(5002);
    zv::wire::ShareInput input;
    input.set_type(zv::wire::ShareInput::TOUCH_DOWN);
    input.set_x(100);
    input.set_y(65535);
    zv::wire::ShareControlState control;
    control.set_holder("nonsupport");
    zv::wire::ShareAccepted accepted;
    accepted.set_share_id(0x80000001u);
    for (const QByteArray& sample : {framed(request), framed(input), framed(control), framed(accepted),
                                     framed(zv::wire::ShareKeyFrame()), framed(zv::wire::ShareStop())}) {
        samples.push_back(sample);
    }
    // Camera and microphone sharing.
    zv::wire::DeviceRequest devices;
    devices.set_microphone_port(5004);
    devices.set_camera_port(70000);
    zv::wire::DeviceAccepted lent;
    lent.set_device_id(0xC0000001u);
    lent.set_microphone(true);
    zv::wire::DeviceRefused refusedDevices;
    refusedDevices.set_reason("nonsupport");
    for (const QByteArray& sample : {framed(devices), framed(lent), framed(refusedDevices),
                                     framed(zv::wire::DeviceStop()), framed(zv::wire::DevicePending()),
                                     framed(zv::wire::FilePending())}) {
        samples.push_back(sample);
    }
    return zv_fuzz::runStandalone("fuzz_frame_decoder", argc, argv, samples, 20000, 2000);
}
#endif
