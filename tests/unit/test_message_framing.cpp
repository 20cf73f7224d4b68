// Frames and messages: the exact bytes on the wire, every message type through
// encode -> decode -> parse, streams cut anywhere, and hostile input.
#include <gtest/gtest.h>

#include <QByteArray>
#include <QCborArray>
#include <QCborMap>
#include <functional>
#include <vector>

#include "protocol/CastMessages.h"
#include "protocol/MessageFraming.h"
#include "protocol/Messages.h"

namespace {

using namespace zv;

QByteArray hex(const char* text) { return QByteArray::fromHex(text); }

// One message of every type, with no field left at its default.
std::vector<QCborMap> sampleMessages() {
    HelloMessage hello;
    hello.proto = 1;
    hello.minProto = 1;
    hello.code = QStringLiteral("012G28T5");
    hello.host = QStringLiteral("Büro-PC");
    hello.deviceType = 3;
    hello.device = {QStringLiteral("PC"), QStringLiteral("desk"), QStringLiteral("192.168.1.7"),
                    QStringLiteral("aa:bb:cc:dd:ee:ff"), QStringLiteral("Debian 12"), 1920, 1080};
    hello.resume = QStringLiteral("r-123");

    WelcomeMessage welcome;
    welcome.proto = 1;
    welcome.minProto = 1;
    welcome.session = 0x1'0000'0001LL;
    welcome.resume = QStringLiteral("r-456");
    welcome.heartbeatMs = 1000;
    welcome.panel = {QStringLiteral("ZV-86"), QStringLiteral("Room 4"), QStringLiteral("0123456789abcdef"),
                     QStringLiteral("10.0.0.9"), 47800, 3840, 2160, 7, QStringLiteral("zelvanor-receiver 0.1")};
    welcome.caps = {0x7F, 4, 3840, 2160};
    welcome.resumed = true;

    return {buildHello(hello),
            buildWelcome(welcome),
            buildRefused({reason::kTooManyClients, QStringLiteral("four already")}),
            buildHeartbeat({-5}),
            buildReport({QStringLiteral("StartScreen"), true, QStringLiteral("1080p30")}),
            buildBye({reason::kLogOutByServer}),
            buildRegister({QStringLiteral("AB12"), QStringLiteral("10.0.0.9"), 47800, QStringLiteral("Room 4"), 60}),
            buildRegistered({QStringLiteral("AB12"), 60}),
            buildResolve({QStringLiteral("AB12")}),
            buildResolved({QStringLiteral("10.0.0.9"), 47800, QStringLiteral("Room 4")}),
            buildUnregister({QStringLiteral("AB12"), QStringLiteral("10.0.0.9")}),
            buildUnregistered(),
            buildError({reason::kTaken}),
            buildCastRequest({QStringLiteral("window"), QStringLiteral("udp"), 1920, 1080, 60, true, true, 5004}),
            buildCastPending(),
            buildCastAccepted({QStringLiteral("brx"), 5000, 5002, 5001, QStringLiteral("k3y"), 30, 3840, 2160}),
            buildCastRefused({QStringLiteral("race fail."), QStringLiteral("someone else casts")}),
            buildCastSwitch(msg::kCastPause, {true}),
            buildCastSwitch(msg::kCastVoice, {true}),
            buildCastSwitch(msg::kCastVoiceState, {true}),
            buildCastSwitch(msg::kCastControl, {true}),
            buildCastStop({QStringLiteral("user")}),
            buildCastControlState({true, QStringLiteral("nonsupport")}),
            buildCursor({65535, 17, false}),
            buildTouch({QStringLiteral("touchMove"), 100, 65535, 1234567890123LL}),
            buildCastStats({8000, 30, 28, 2}),
            buildCastStalled({5})};
}

// Parses a message with the reader for its type and builds it again.
QCborMap reparse(const QCborMap& map, QString* error) {
    const QString t = messageType(map);
    auto again = [&](auto parsed, auto build) -> QCborMap { return parsed ? build(*parsed) : QCborMap(); };
    if (t == msg::kHello) return again(parseHello(map, error), buildHello);
    if (t == msg::kWelcome) return again(parseWelcome(map, error), buildWelcome);
    if (t == msg::kRefused) return again(parseRefused(map, error), buildRefused);
    if (t == msg::kHeartbeat) return again(parseHeartbeat(map, error), buildHeartbeat);
    if (t == msg::kReport) return again(parseReport(map, error), buildReport);
    if (t == msg::kBye) return again(parseBye(map, error), buildBye);
    if (t == msg::kRegister) return again(parseRegister(map, error), buildRegister);
    if (t == msg::kRegistered) return again(parseRegistered(map, error), buildRegistered);
    if (t == msg::kResolve) return again(parseResolve(map, error), buildResolve);
    if (t == msg::kResolved) return again(parseResolved(map, error), buildResolved);
    if (t == msg::kUnregister) return again(parseUnregister(map, error), buildUnregister);
    if (t == msg::kUnregistered) return again(parseUnregistered(map, error), buildUnregistered);
    if (t == msg::kError) return again(parseError(map, error), buildError);
    if (t == msg::kCastRequest) return again(parseCastRequest(map, error), buildCastRequest);
    if (t == msg::kCastPending) return map == buildCastPending() ? map : QCborMap();
    if (t == msg::kCastAccepted) return again(parseCastAccepted(map, error), buildCastAccepted);
    if (t == msg::kCastRefused) return again(parseCastRefused(map, error), buildCastRefused);
    if (t == msg::kCastPause || t == msg::kCastVoice || t == msg::kCastVoiceState || t == msg::kCastControl) {
        return again(parseCastSwitch(map, t, error), [&](const CastSwitchMessage& m) { return buildCastSwitch(t, m); });
    }
    if (t == msg::kCastStop) return again(parseCastStop(map, error), buildCastStop);
    if (t == msg::kCastControlState) return again(parseCastControlState(map, error), buildCastControlState);
    if (t == msg::kCursor) return again(parseCursor(map, error), buildCursor);
    if (t == msg::kTouch) return again(parseTouch(map, error), buildTouch);
    if (t == msg::kCastStats) return again(parseCastStats(map, error), buildCastStats);
    if (t == msg::kCastStalled) return again(parseCastStalled(map, error), buildCastStalled);
    *error = QStringLiteral("no reader for ") + t;
    return {};
}

QByteArray streamOf(const std::vector<QCborMap>& messages) {
    QByteArray stream;
    for (const QCborMap& m : messages) stream += encodeFrame(m);
    return stream;
}

TEST(MessageFraming, EncodesExactBytes) {
    // {"t":"hb","seq":7}: length 11, then a 2-pair map of short texts.
    EXPECT_EQ(encodeFrame(buildHeartbeat({7})).toHex(' '),
              hex("0000000b a2 6174 626862 63736571 07").toHex(' '));
    // A sequence number past 23 takes the two-byte integer form.
    EXPECT_EQ(encodeFrame(buildHeartbeat({1000})).toHex(' '),
              hex("0000000d a2 6174 626862 63736571 1903e8").toHex(' '));
    // {"t":"bye","reason":"x"}: texts stay texts, order as built.
    EXPECT_EQ(encodeFrame(buildBye({QStringLiteral("x")})).toHex(' '),
              hex("00000010 a2 6174 63627965 66726561736f6e 6178").toHex(' '));
}

TEST(MessageFraming, EveryMessageTypeSurvivesTheRoundTrip) {
    const std::vector<QCborMap> sent = sampleMessages();
    FrameDecoder decoder;
    const QVector<QCborMap> received = decoder.feed(streamOf(sent));
    ASSERT_FALSE(decoder.hasError()) << decoder.errorString().toStdString();
    ASSERT_EQ(received.size(), int(sent.size()));
    for (size_t i = 0; i < sent.size(); ++i) {
        const QString t = messageType(sent[i]);
        EXPECT_TRUE(isKnownMessageType(t)) << t.toStdString();
        EXPECT_EQ(received[int(i)], sent[i]) << t.toStdString();
        QString error;
        EXPECT_EQ(reparse(received[int(i)], &error), sent[i]) << t.toStdString() << ": " << error.toStdString();
    }
    EXPECT_EQ(decoder.pendingBytes(), 0);
    EXPECT_FALSE(isKnownMessageType(QStringLiteral("hb2")));

    // Spot checks that fields land where they belong, not only symmetrically.
    QString error;
    const auto hello = parseHello(received[0], &error);
    ASSERT_TRUE(hello);
    EXPECT_EQ(hello->host, QStringLiteral("Büro-PC"));
    EXPECT_EQ(hello->device.height, 1080);
    EXPECT_EQ(hello->resume, QStringLiteral("r-123"));
    const auto welcome = parseWelcome(received[1], &error);
    ASSERT_TRUE(welcome);
    EXPECT_EQ(welcome->session, 0x1'0000'0001LL);
    EXPECT_EQ(welcome->panel.key, QStringLiteral("0123456789abcdef"));
    EXPECT_EQ(welcome->caps.maxClients, 4);
    EXPECT_TRUE(welcome->resumed);
    const auto touch = parseTouch(buildTouch({QStringLiteral("touchUp"), 1, 2, 3}), &error);
    ASSERT_TRUE(touch);
    EXPECT_EQ(touch->type, QStringLiteral("touchUp"));
    EXPECT_FALSE(parseCastSwitch(buildCastSwitch(msg::kCastPause, {true}), msg::kCastVoice, &error))
        << "a pause is not a voice switch";

    // resume is optional in hello and stays absent.
    HelloMessage plain;
    const auto noResume = parseHello(buildHello(plain), &error);
    ASSERT_TRUE(noResume) << error.toStdString();
    EXPECT_FALSE(noResume->resume.has_value());
    EXPECT_FALSE(buildHello(plain).contains(QStringLiteral("resume")));
}

TEST(MessageFraming, StreamCutAtAnyByteDecodesTheSame) {
    const std::vector<QCborMap> sent = sampleMessages();
    const QByteArray stream = streamOf(sent);

    for (int cut = 0; cut <= stream.size(); ++cut) {
        FrameDecoder decoder;
        QVector<QCborMap> got = decoder.feed(stream.left(cut));
        got += decoder.feed(stream.mid(cut));
        ASSERT_FALSE(decoder.hasError()) << "cut at " << cut << ": " << decoder.errorString().toStdString();
        ASSERT_EQ(got.size(), int(sent.size())) << "cut at " << cut;
        for (size_t i = 0; i < sent.size(); ++i) ASSERT_EQ(got[int(i)], sent[i]) << "cut at " << cut;
    }

    FrameDecoder byteByByte;
    QVector<QCborMap> got;
    for (char c : stream) {
        got += byteByByte.feed(QByteArray(1, c));
        ASSERT_FALSE(byteByByte.hasError()) << byteByByte.errorString().toStdString();
    }
    ASSERT_EQ(got.size(), int(sent.size()));
    for (size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(got[int(i)], sent[i]);

    // Three frames with the third's header split: two now, the third later.
    FrameDecoder partial;
    const QByteArray three = encodeFrame(sent[3]) + encodeFrame(sent[4]) + encodeFrame(sent[5]);
    const int split = encodeFrame(sent[3]).size() + encodeFrame(sent[4]).size() + 2;
    EXPECT_EQ(partial.feed(three.left(split)).size(), 2);
    EXPECT_EQ(partial.pendingBytes(), 2);
    const QVector<QCborMap> last = partial.feed(three.mid(split));
    ASSERT_EQ(last.size(), 1);
    EXPECT_EQ(last[0], sent[5]);
}

TEST(MessageFraming, FrameOfExactlyTheLimitIsAccepted) {
    // Grow a report's detail until the payload is exactly 1 MiB.
    ReportMessage report{QStringLiteral("big"), false, QString()};
    int detail = int(kMaxFrameBytes) - 64;
    for (int round = 0; round < 3; ++round) {
        report.detail = QString(detail, QLatin1Char('x'));
        detail += int(kMaxFrameBytes) - (encodeFrame(buildReport(report)).size() - 4);
    }
    report.detail = QString(detail, QLatin1Char('x'));
    const QByteArray frame = encodeFrame(buildReport(report));
    ASSERT_EQ(frame.size() - 4, int(kMaxFrameBytes));

    FrameDecoder decoder;
    const QVector<QCborMap> got = decoder.feed(frame);
    ASSERT_EQ(got.size(), 1) << decoder.errorString().toStdString();
    EXPECT_EQ(parseReport(got[0], nullptr)->detail.size(), detail);
}

TEST(MessageFraming, MalformedFramesStopTheStreamWithAReason) {
    struct Case {
        const char* name;
        QByteArray bytes;
        const char* reason;
    };
    const QByteArray hb = encodeFrame(buildHeartbeat({1}));
    const std::vector<Case> cases = {
        {"zero length", hex("00000000"), "length 0"},
        {"length above 1 MiB, payload not sent", hex("00100001"), "exceeds the limit"},
        {"2 MiB announced", hex("00200000a1"), "2097152"},
        {"length 0xffffffff", hex("ffffffff"), "exceeds the limit"},
        {"CBOR cut inside the frame", hex("00000005 a2 6174 6268"), "malformed CBOR"},
        {"CBOR array instead of map", hex("00000003 820102"), "not a CBOR map"},
        {"a bare integer", hex("00000001 07"), "not a CBOR map"},
        {"a break byte", hex("00000001 ff"), "not"},
        {"map without t", hex("00000004 a1 6178 01"), "without \"t\""},
        {"t is an integer", hex("00000004 a1 6174 01"), "not a text"},
        {"t is a byte string", hex("00000005 a1 6174 4168"), "not a text"},
        {"t is not UTF-8", hex("00000006 a1 6174 62fffe"), "malformed CBOR"},
        {"junk after the map", hex("00000007 a1 6174 6268 62 00"), "trailing"},
        {"two maps in one frame", hex("0000000a a1 6174 626862 a1 6174 626862"), "trailing"},
        {"nesting too deep", QByteArray("\x00\x00\x10\x00\xa1\x61\x74", 7) + QByteArray(4096 - 3, char(0x81)), "CBOR"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FrameDecoder decoder;
        // A good frame first: it is still delivered; the bad one ends the stream.
        const QVector<QCborMap> got = decoder.feed(hb + c.bytes + hb);
        ASSERT_EQ(got.size(), 1);
        EXPECT_EQ(got[0], buildHeartbeat({1}));
        ASSERT_TRUE(decoder.hasError());
        EXPECT_TRUE(decoder.errorString().contains(QLatin1String(c.reason))) << decoder.errorString().toStdString();
        EXPECT_TRUE(decoder.feed(hb).isEmpty()) << "an errored stream must stay dead";
        decoder.reset();
        EXPECT_FALSE(decoder.hasError());
        EXPECT_EQ(decoder.feed(hb).size(), 1);
    }
}

TEST(MessageFraming, ReadersRejectMissingAndMistypedFields) {
    HelloMessage h;
    h.code = QStringLiteral("AB12");
    const QCborMap good = buildHello(h);
    QString error;
    ASSERT_TRUE(parseHello(good, &error)) << error.toStdString();

    auto changed = [&](const std::function<void(QCborMap&)>& edit) {
        QCborMap m = good;
        edit(m);
        return m;
    };
    auto deviceChanged = [&](const std::function<void(QCborMap&)>& edit) {
        return changed([&](QCborMap& m) {
            QCborMap device = m.value(QStringLiteral("device")).toMap();
            edit(device);
            m.insert(QStringLiteral("device"), device);
        });
    };
    struct Case {
        const char* name;
        QCborMap map;
        const char* reason;
    };
    const std::vector<Case> cases = {
        {"host missing", changed([](QCborMap& m) { m.remove(QStringLiteral("host")); }), "missing \"host\""},
        {"proto as text", changed([](QCborMap& m) { m.insert(QStringLiteral("proto"), QStringLiteral("1")); }),
         "\"proto\" is not an integer"},
        {"proto as double", changed([](QCborMap& m) { m.insert(QStringLiteral("proto"), 1.0); }), "not an integer"},
        {"proto beyond 32 bits", changed([](QCborMap& m) { m.insert(QStringLiteral("proto"), qint64(1) << 40); }),
         "out of range"},
        {"code as bytes", changed([](QCborMap& m) { m.insert(QStringLiteral("code"), QByteArray("AB12")); }),
         "\"code\" is not a text"},
        {"device as array", changed([](QCborMap& m) { m.insert(QStringLiteral("device"), QCborArray{1}); }),
         "\"device\" is not a map"},
        {"device.width missing", deviceChanged([](QCborMap& d) { d.remove(QStringLiteral("width")); }),
         "hello.device: missing \"width\""},
        {"device.os as bool", deviceChanged([](QCborMap& d) { d.insert(QStringLiteral("os"), true); }),
         "\"os\" is not a text"},
        {"resume present but an integer", changed([](QCborMap& m) { m.insert(QStringLiteral("resume"), 5); }),
         "\"resume\" is not a text"},
        {"another type", buildBye({QStringLiteral("x")}), "expected a \"hello\" message, got \"bye\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        error.clear();
        EXPECT_FALSE(parseHello(c.map, &error));
        EXPECT_TRUE(error.contains(QLatin1String(c.reason))) << error.toStdString();
    }

    // Unknown keys are ignored; a null error pointer is allowed.
    EXPECT_TRUE(parseHello(changed([](QCborMap& m) { m.insert(QStringLiteral("future"), 42); }), nullptr));
    EXPECT_FALSE(parseHello(QCborMap(), nullptr));

    // The other readers share the checks; one each where the type is easy to get wrong.
    QCborMap welcome = sampleMessages()[1];
    welcome.insert(QStringLiteral("resumed"), 1);
    EXPECT_FALSE(parseWelcome(welcome, &error));
    EXPECT_TRUE(error.contains(QLatin1String("\"resumed\" is not a bool"))) << error.toStdString();
    QCborMap reg = sampleMessages()[6];
    reg.insert(QStringLiteral("ttl"), QStringLiteral("60"));
    EXPECT_FALSE(parseRegister(reg, &error));
    EXPECT_TRUE(error.contains(QLatin1String("register: \"ttl\""))) << error.toStdString();
    QCborMap report = sampleMessages()[4];
    report.remove(QStringLiteral("flag"));
    EXPECT_FALSE(parseReport(report, &error));
    EXPECT_TRUE(error.contains(QLatin1String("missing \"flag\""))) << error.toStdString();
}

}  // namespace
