// Frames and envelopes: the exact bytes on the wire, every message through
// encode -> decode, streams cut anywhere, hostile input, bodies and fields a
// newer peer may send, and the dispatcher that hands envelopes to handlers.
#include <gtest/gtest.h>

#include <google/protobuf/util/message_differencer.h>

#include <QByteArray>
#include <set>
#include <vector>

#include "protocol/MessageDispatcher.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"

namespace {

using namespace zv;
using google::protobuf::util::MessageDifferencer;

QByteArray hex(const char* text) { return QByteArray::fromHex(text); }

template <typename Body>
wire::Envelope envelopeOf(const Body& body) {
    wire::Envelope envelope = wrap(body);
    envelope.set_version(kProtocolMajor);
    return envelope;
}

// One envelope of every body, with no field left at its default.
std::vector<wire::Envelope> sampleEnvelopes() {
    std::vector<wire::Envelope> out;
    wire::Envelope e;

    wire::Hello& hello = *e.mutable_hello();
    hello.set_major(2);
    hello.set_minor(7);
    hello.set_auth(wire::Hello::CODE);
    hello.set_pake_share(std::string(32, '\x5a'));
    hello.set_host("Büro-PC");
    hello.set_device_type(3);
    hello.mutable_device()->set_model("ThinkPad");
    hello.mutable_device()->set_name("pc-1");
    hello.mutable_device()->set_address("10.0.0.5");
    hello.mutable_device()->set_mac("aa:bb:cc:dd:ee:ff");
    hello.mutable_device()->set_os("Debian 12");
    hello.mutable_device()->set_width(1920);
    hello.mutable_device()->set_height(1080);
    hello.set_resume("r-123");
    out.push_back(e);

    e.Clear();
    wire::Welcome& welcome = *e.mutable_welcome();
    welcome.set_major(2);
    welcome.set_minor(1);
    welcome.set_session(0x1'0000'0001LL);
    welcome.set_resume("r-456");
    welcome.set_heartbeat_ms(1000);
    welcome.mutable_panel()->set_model("Zelvanor Receiver");
    welcome.mutable_panel()->set_name("Raum 4");
    welcome.mutable_panel()->set_key("4JRShzzy6WA2hv7JxL3d2PpP60C_8PexOrzcSoaDPew");
    welcome.mutable_panel()->set_address("10.0.0.9");
    welcome.mutable_panel()->set_port(47800);
    welcome.mutable_panel()->set_width(3840);
    welcome.mutable_panel()->set_height(2160);
    welcome.mutable_panel()->set_device_type(2);
    welcome.mutable_panel()->set_software("0.1.0");
    welcome.mutable_caps()->set_bits(5);
    welcome.mutable_caps()->set_max_clients(4);
    welcome.mutable_caps()->set_max_width(3840);
    welcome.mutable_caps()->set_max_height(2160);
    welcome.set_resumed(true);
    welcome.set_approved(true);
    out.push_back(e);

    e.Clear();
    e.mutable_pake_reply()->set_share(std::string(32, '\x01'));
    e.mutable_pake_reply()->set_tag(std::string(64, '\xfe'));
    out.push_back(e);
    e.Clear();
    e.mutable_pake_confirm()->set_tag(std::string(64, '\x7f'));
    out.push_back(e);

    e.Clear();
    e.mutable_refused()->set_reason(wire::Refused::TOO_MANY_CLIENTS);
    e.mutable_refused()->set_text("four already");
    out.push_back(e);
    e.Clear();
    e.mutable_heartbeat()->set_seq(-5);
    out.push_back(e);
    e.Clear();
    e.mutable_report()->set_event("StartScreen");
    e.mutable_report()->set_flag(true);
    e.mutable_report()->set_detail("1080p30");
    out.push_back(e);
    e.Clear();
    e.mutable_bye()->set_reason("logOutByServer");
    out.push_back(e);

    e.Clear();
    wire::CastRequest& request = *e.mutable_cast_request();
    request.set_source(wire::CastRequest::SOURCE_WINDOW);
    request.set_transport(wire::TRANSPORT_UDP);
    request.set_width(1920);
    request.set_height(1080);
    request.set_fps(60);
    request.set_audio(true);
    request.set_control(true);
    request.set_rtcp_port(5004);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_pending();
    out.push_back(e);
    e.Clear();
    wire::CastAccepted& accepted = *e.mutable_cast_accepted();
    accepted.set_transport(wire::TRANSPORT_BRX);
    accepted.set_video_port(5000);
    accepted.set_audio_port(5002);
    accepted.set_rtcp_port(5001);
    accepted.set_cast_id(0xfedcba98);
    accepted.set_latency_ms(30);
    accepted.set_width(3840);
    accepted.set_height(2160);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_refused()->set_reason("race fail.");
    e.mutable_cast_refused()->set_text("someone else casts");
    out.push_back(e);
    e.Clear();
    e.mutable_cast_pause()->set_paused(true);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_stop()->set_reason("user");
    out.push_back(e);
    e.Clear();
    e.mutable_cast_voice()->set_on(true);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_voice_state()->set_on(true);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_control()->set_on(true);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_control_state()->set_on(true);
    e.mutable_cast_control_state()->set_holder("nonsupport");
    out.push_back(e);
    e.Clear();
    e.mutable_cursor()->set_x(65535);
    e.mutable_cursor()->set_y(17);
    e.mutable_cursor()->set_visible(true);
    out.push_back(e);
    e.Clear();
    e.mutable_touch()->set_type(wire::Touch::MOUSE_WHEEL);
    e.mutable_touch()->set_x(100);
    e.mutable_touch()->set_y(65535);
    e.mutable_touch()->set_time(1234567890123LL);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_stats()->set_bitrate_kbps(8000);
    e.mutable_cast_stats()->set_fps(30);
    e.mutable_cast_stats()->set_delay_ms(28);
    e.mutable_cast_stats()->set_loss_percent(2);
    out.push_back(e);
    e.Clear();
    e.mutable_cast_stalled()->set_seconds(5);
    out.push_back(e);

    e.Clear();
    wire::Register& reg = *e.mutable_register_passcode();
    reg.set_passcode("AB12");
    reg.set_address("10.0.0.9");
    reg.set_port(47800);
    reg.set_name("Room 4");
    reg.set_ttl(60);
    reg.set_rotate(true);
    reg.mutable_proof()->set_certificate(std::string("\x30\x82\x01\x00", 4));
    reg.mutable_proof()->set_timestamp_ms(1700000000123);
    reg.mutable_proof()->set_signature(std::string(70, '\x5a'));
    out.push_back(e);
    e.Clear();
    e.mutable_registered()->set_passcode("AB12");
    e.mutable_registered()->set_ttl(60);
    out.push_back(e);
    e.Clear();
    e.mutable_resolve()->set_passcode("AB12");
    out.push_back(e);
    e.Clear();
    e.mutable_resolved()->set_address("10.0.0.9");
    e.mutable_resolved()->set_port(47800);
    e.mutable_resolved()->set_name("Room 4");
    e.mutable_resolved()->set_key("p2uY8Vq1mH0f7cJ3kQx9ZtLw4rN6sA5bE2dG8hK1jM0");
    out.push_back(e);
    e.Clear();
    e.mutable_unregister()->set_passcode("AB12");
    e.mutable_unregister()->mutable_proof()->set_timestamp_ms(1700000000456);
    out.push_back(e);
    e.Clear();
    e.mutable_unregistered();
    out.push_back(e);
    e.Clear();
    e.mutable_passcode_error()->set_reason(wire::PasscodeError::BAD_PROOF);
    out.push_back(e);

    // Reverse screen.
    e.Clear();
    wire::ShareRequest* share = e.mutable_share_request();
    share->set_transport(wire::TRANSPORT_UDP);
    share->set_video_port(50000);
    share->set_audio_port(50002);
    share->set_rtcp_port(50004);
    share->set_voice(true);
    out.push_back(e);
    e.Clear();
    e.mutable_share_pending();
    out.push_back(e);
    e.Clear();
    e.mutable_share_accepted()->set_share_id(0x80000001u);
    e.mutable_share_accepted()->set_encoder("x264enc");
    out.push_back(e);
    e.Clear();
    e.mutable_share_refused()->set_reason("race fail.");
    out.push_back(e);
    e.Clear();
    e.mutable_share_stop()->set_reason("stopped on the panel");
    out.push_back(e);
    e.Clear();
    e.mutable_share_key_frame();
    out.push_back(e);
    e.Clear();
    e.mutable_share_voice()->set_on(true);
    out.push_back(e);
    e.Clear();
    e.mutable_share_voice_state()->set_on(true);
    out.push_back(e);
    e.Clear();
    e.mutable_share_control()->set_on(true);
    out.push_back(e);
    e.Clear();
    e.mutable_share_control_state()->set_holder("nonsupport");
    out.push_back(e);
    e.Clear();
    e.mutable_share_input()->set_type(wire::ShareInput::TOUCH_DOWN);
    e.mutable_share_input()->set_x(65535);
    out.push_back(e);
    e.Clear();
    e.mutable_share_control_invalid();
    out.push_back(e);
    e.Clear();
    e.mutable_share_restart();
    out.push_back(e);

    // File casting.
    e.Clear();
    wire::FileStart* start = e.mutable_file_start();
    start->set_file_id(3);
    start->set_name("Überblick.mp4");
    start->set_size(1ull << 33);
    start->set_kind(wire::FILE_KIND_VIDEO);
    start->set_content_id(std::string(32, '\x5a'));
    out.push_back(e);
    e.Clear();
    e.mutable_file_accepted()->set_file_id(3);
    e.mutable_file_accepted()->set_duration_ms(-1);
    e.mutable_file_accepted()->set_width(3840);
    out.push_back(e);
    e.Clear();
    e.mutable_file_refused()->set_reason("unplayable");
    e.mutable_file_refused()->set_text("This panel cannot play notes.mp4");
    out.push_back(e);
    e.Clear();
    e.mutable_file_read()->set_offset(1ull << 32);
    e.mutable_file_read()->set_length(512 * 1024);
    out.push_back(e);
    e.Clear();
    e.mutable_file_data()->set_request_id(9);
    e.mutable_file_data()->set_data(std::string("\0\1\2\xff", 4));
    out.push_back(e);
    e.Clear();
    e.mutable_file_pause()->set_paused(true);
    out.push_back(e);
    e.Clear();
    e.mutable_file_seek()->set_position_ms(550000);
    out.push_back(e);
    e.Clear();
    e.mutable_file_volume()->set_volume(40);
    out.push_back(e);
    e.Clear();
    e.mutable_picture_rotate()->set_degrees(-270);
    out.push_back(e);
    e.Clear();
    e.mutable_picture_scale()->set_percent(400);
    out.push_back(e);
    e.Clear();
    e.mutable_picture_translate()->set_dx(-2048);
    e.mutable_picture_translate()->set_dy(1);
    out.push_back(e);
    e.Clear();
    e.mutable_file_info_request()->set_file_id(3);
    out.push_back(e);
    e.Clear();
    e.mutable_file_info()->set_state(wire::FILE_STATE_PAUSED);
    e.mutable_file_info()->set_position_ms(7000);
    out.push_back(e);
    e.Clear();
    e.mutable_file_end()->set_reason(wire::FileEnd::REASON_VANISHED);
    e.mutable_file_end()->set_text("clip.mp4 was deleted while it played");
    out.push_back(e);
    e.Clear();
    e.mutable_file_pending()->set_file_id(3);
    out.push_back(e);

    // Camera and microphone sharing.
    e.Clear();
    e.mutable_device_request()->set_microphone_port(50010);
    e.mutable_device_request()->set_camera_port(50012);
    out.push_back(e);
    e.Clear();
    e.mutable_device_accepted()->set_device_id(0xC0000001u);
    e.mutable_device_accepted()->set_microphone(true);
    e.mutable_device_accepted()->set_microphone_test_source(true);
    e.mutable_device_accepted()->set_camera_id(0xC0000002u);
    out.push_back(e);
    e.Clear();
    e.mutable_device_refused()->set_reason("nonsupport");
    e.mutable_device_refused()->set_text("this panel does not share its camera or microphone");
    out.push_back(e);
    e.Clear();
    e.mutable_device_stop()->set_reason("stopped");
    out.push_back(e);
    e.Clear();
    e.mutable_device_pending();
    out.push_back(e);

    for (wire::Envelope& envelope : out) envelope.set_version(kProtocolMajor);
    return out;
}

QByteArray streamOf(const std::vector<wire::Envelope>& envelopes) {
    QByteArray stream;
    for (const wire::Envelope& e : envelopes) stream += encodeFrame(e);
    return stream;
}

void expectSame(const std::vector<wire::Envelope>& got, const std::vector<wire::Envelope>& sent, const char* where) {
    ASSERT_EQ(got.size(), sent.size()) << where;
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_TRUE(MessageDifferencer::Equals(got[i], sent[i])) << where << ": " << bodyName(sent[i]).toStdString();
    }
}

TEST(MessageFraming, EncodesExactBytes) {
    wire::Heartbeat beat;
    beat.set_seq(7);
    // version 2 (field 1), then the heartbeat as field 19 (tag 0x9a 0x01) holding seq 7.
    EXPECT_EQ(encodeFrame(envelopeOf(beat)).toHex(' '), hex("00000007 0802 9a01 02 0807").toHex(' '));
    // A sequence number past 127 takes a two-byte varint.
    beat.set_seq(1000);
    EXPECT_EQ(encodeFrame(envelopeOf(beat)).toHex(' '), hex("00000008 0802 9a01 03 08e807").toHex(' '));
    // Texts go as they are: bye (field 21) with reason "x".
    wire::Bye bye;
    bye.set_reason("x");
    EXPECT_EQ(encodeFrame(envelopeOf(bye)).toHex(' '), hex("00000008 0802 aa01 03 0a0178").toHex(' '));
    // An empty body still names its type: castPending, field 49.
    EXPECT_EQ(encodeFrame(envelopeOf(wire::CastPending())).toHex(' '), hex("00000005 0802 8a03 00").toHex(' '));
}

TEST(MessageFraming, EveryMessageTypeSurvivesTheRoundTrip) {
    const std::vector<wire::Envelope> sent = sampleEnvelopes();
    // The samples cover every body the schema has.
    std::set<int> covered;
    for (const wire::Envelope& e : sent) covered.insert(e.body_case());
    const google::protobuf::OneofDescriptor* body = wire::Envelope::descriptor()->FindOneofByName("body");
    for (int i = 0; i < body->field_count(); ++i) {
        EXPECT_TRUE(covered.count(body->field(i)->number())) << "no sample of " << body->field(i)->name();
    }

    FrameDecoder decoder;
    const std::vector<wire::Envelope> received = decoder.feed(streamOf(sent));
    ASSERT_FALSE(decoder.hasError()) << decoder.errorString().toStdString();
    expectSame(received, sent, "one feed");
    EXPECT_EQ(decoder.pendingBytes(), 0);

    // Spot checks that fields land where they belong, not only symmetrically.
    ASSERT_TRUE(received[0].has_hello());
    EXPECT_EQ(received[0].version(), uint32_t(kProtocolMajor));
    EXPECT_EQ(received[0].hello().host(), "Büro-PC");
    EXPECT_EQ(received[0].hello().device().height(), 1080);
    EXPECT_EQ(received[0].hello().resume(), "r-123");
    EXPECT_EQ(received[1].welcome().session(), 0x1'0000'0001LL);
    EXPECT_EQ(received[1].welcome().panel().key(), "4JRShzzy6WA2hv7JxL3d2PpP60C_8PexOrzcSoaDPew");
    EXPECT_TRUE(received[1].welcome().approved());
    EXPECT_EQ(received[0].hello().auth(), wire::Hello::CODE);
    EXPECT_EQ(received[2].pake_reply().tag().size(), 64u);
    EXPECT_EQ(received[3].pake_confirm().tag(), std::string(64, '\x7f'));
    EXPECT_EQ(received[1].welcome().caps().max_clients(), 4);
    EXPECT_TRUE(received[1].welcome().resumed());

    // resume is optional in hello and stays absent.
    wire::Hello plain;
    plain.set_major(2);
    FrameDecoder again;
    const std::vector<wire::Envelope> back = again.feed(encodeFrame(envelopeOf(plain)));
    ASSERT_EQ(back.size(), 1u);
    EXPECT_FALSE(back[0].hello().has_resume());
    plain.set_resume("");
    EXPECT_TRUE(again.feed(encodeFrame(envelopeOf(plain)))[0].hello().has_resume()) << "empty but present";

    // wrap() takes body messages only.
    EXPECT_EQ(wrap(wire::DeviceInfo()).body_case(), wire::Envelope::BODY_NOT_SET);
    EXPECT_EQ(wrap(wire::Unregistered()).body_case(), wire::Envelope::kUnregistered);
    EXPECT_EQ(bodyName(sent[2]), QStringLiteral("pake_reply"));
    EXPECT_EQ(bodyName(sent[8]), QStringLiteral("cast_request"));
}

TEST(MessageFraming, StreamCutAtAnyByteDecodesTheSame) {
    const std::vector<wire::Envelope> sent = sampleEnvelopes();
    const QByteArray stream = streamOf(sent);

    for (int cut = 0; cut <= stream.size(); ++cut) {
        FrameDecoder decoder;
        std::vector<wire::Envelope> got = decoder.feed(stream.left(cut));
        for (wire::Envelope& e : decoder.feed(stream.mid(cut))) got.push_back(std::move(e));
        ASSERT_FALSE(decoder.hasError()) << "cut at " << cut << ": " << decoder.errorString().toStdString();
        ASSERT_EQ(got.size(), sent.size()) << "cut at " << cut;
        for (size_t i = 0; i < sent.size(); ++i) ASSERT_TRUE(MessageDifferencer::Equals(got[i], sent[i])) << cut;
    }

    FrameDecoder byteByByte;
    std::vector<wire::Envelope> got;
    for (char c : stream) {
        for (wire::Envelope& e : byteByByte.feed(QByteArray(1, c))) got.push_back(std::move(e));
        ASSERT_FALSE(byteByByte.hasError()) << byteByByte.errorString().toStdString();
    }
    expectSame(got, sent, "byte by byte");

    // Three frames with the third's header split: two now, the third later.
    FrameDecoder partial;
    const QByteArray three = encodeFrame(sent[3]) + encodeFrame(sent[4]) + encodeFrame(sent[5]);
    const int split = encodeFrame(sent[3]).size() + encodeFrame(sent[4]).size() + 2;
    EXPECT_EQ(partial.feed(three.left(split)).size(), 2u);
    EXPECT_EQ(partial.pendingBytes(), 2);
    expectSame(partial.feed(three.mid(split)), {sent[5]}, "the third");
}

TEST(MessageFraming, FrameOfExactlyTheLimitIsAcceptedOneMoreIsNot) {
    // Grow a report's detail until the payload is exactly 1 MiB.
    wire::Report report;
    report.set_event("big");
    int detail = int(kMaxFrameBytes) - 64;
    for (int round = 0; round < 3; ++round) {
        report.set_detail(std::string(size_t(detail), 'x'));
        detail += int(kMaxFrameBytes) - (encodeFrame(envelopeOf(report)).size() - 4);
    }
    report.set_detail(std::string(size_t(detail), 'x'));
    const QByteArray frame = encodeFrame(envelopeOf(report));
    ASSERT_EQ(frame.size() - 4, int(kMaxFrameBytes));

    FrameDecoder decoder;
    const std::vector<wire::Envelope> got = decoder.feed(frame);
    ASSERT_EQ(got.size(), 1u) << decoder.errorString().toStdString();
    EXPECT_EQ(int(got[0].report().detail().size()), detail);

    report.set_detail(report.detail() + "x");
    FrameDecoder over;
    // Refused from the length alone: only the header is fed.
    EXPECT_TRUE(over.feed(encodeFrame(envelopeOf(report)).left(4)).empty());
    EXPECT_TRUE(over.hasError());
    EXPECT_TRUE(over.errorString().contains(QLatin1String("1048577"))) << over.errorString().toStdString();
}

TEST(MessageFraming, MalformedFramesStopTheStreamWithAReason) {
    struct Case {
        const char* name;
        QByteArray bytes;
        const char* reason;
    };
    wire::Heartbeat beat;
    beat.set_seq(1);
    const wire::Envelope hbEnvelope = envelopeOf(beat);
    const QByteArray hb = encodeFrame(hbEnvelope);
    const std::vector<Case> cases = {
        {"zero length", hex("00000000"), "length 0"},
        {"length above 1 MiB, payload not sent", hex("00100001"), "exceeds the limit"},
        {"2 MiB announced", hex("00200000a1"), "2097152"},
        {"length 0xffffffff", hex("ffffffff"), "exceeds the limit"},
        {"wire type 7", hex("00000001 0f"), "no envelope"},
        {"field number 0", hex("00000002 0001"), "no envelope"},
        {"a body cut inside the frame", hex("00000005 9a01 05 0807"), "no envelope"},
        {"a varint of eleven bytes", hex("0000000c 08 ffffffffffffffffffff01"), "no envelope"},
        {"a text that is not UTF-8", hex("00000007 8201 04 2202fffe"), "no envelope"},
        {"an end-group with no start", hex("00000001 0c"), "no envelope"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FrameDecoder decoder;
        // A good frame first: it is still delivered; the bad one ends the stream.
        expectSame(decoder.feed(hb + c.bytes + hb), {hbEnvelope}, c.name);
        ASSERT_TRUE(decoder.hasError());
        EXPECT_TRUE(decoder.errorString().contains(QLatin1String(c.reason))) << decoder.errorString().toStdString();
        EXPECT_TRUE(decoder.feed(hb).empty()) << "an errored stream must stay dead";
        decoder.reset();
        EXPECT_FALSE(decoder.hasError());
        EXPECT_EQ(decoder.feed(hb).size(), 1u);
    }
}

TEST(MessageFraming, WhatANewerPeerAddsIsReadOrSkipped) {
    // A hello of protocol 3 with a field this build does not know (50) and
    // the envelope carrying another unknown field (7): both still decode.
    const QByteArray hello3 = hex("0000000f 0803 3801 8201 08 0803 1001 9203 0178");
    FrameDecoder decoder;
    std::vector<wire::Envelope> got = decoder.feed(hello3);
    ASSERT_EQ(got.size(), 1u) << decoder.errorString().toStdString();
    EXPECT_EQ(got[0].version(), 3u);
    EXPECT_EQ(got[0].hello().major(), 3u);
    EXPECT_EQ(got[0].hello().minor(), 1u);

    // A field whose wire type is not the one we know is set aside, not read.
    got = decoder.feed(hex("0000000a 0802 9a01 05 0d 00000000"));
    ASSERT_FALSE(decoder.hasError()) << decoder.errorString().toStdString();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].heartbeat().seq(), 0);

    // A body of a later version (field 200): no body for us, named in logs.
    got = decoder.feed(hex("00000006 0802 c20c 01 00"));
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].body_case(), wire::Envelope::BODY_NOT_SET);
    EXPECT_EQ(bodyName(got[0]), QStringLiteral("unknown field 200"));
    EXPECT_EQ(bodyName(wire::Envelope()), QStringLiteral("no body"));
}

TEST(MessageDispatcher, HandsEachBodyToItsHandlerAndSaysWhatItDid) {
    MessageDispatcher<int> dispatcher(QStringLiteral("test"));
    std::vector<std::pair<std::string, int>> calls;
    dispatcher.on(wire::Envelope::kCastStop,
                  [&](const wire::Envelope& e, int client) { calls.emplace_back(e.cast_stop().reason(), client); });
    EXPECT_TRUE(dispatcher.handles(wire::Envelope::kCastStop));
    EXPECT_FALSE(dispatcher.handles(wire::Envelope::kCursor));

    wire::CastStop stop;
    stop.set_reason("user");
    EXPECT_EQ(dispatcher.dispatch(envelopeOf(stop), 7), Dispatch::Handled);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], std::make_pair(std::string("user"), 7));

    EXPECT_EQ(dispatcher.dispatch(envelopeOf(wire::Cursor()), 7), Dispatch::Unexpected);
    wire::Envelope fromTheFuture;
    fromTheFuture.ParseFromString(hex("0802 c20c 00").toStdString());
    EXPECT_EQ(dispatcher.dispatch(fromTheFuture, 7), Dispatch::Skipped);
    EXPECT_EQ(dispatcher.dispatch(wire::Envelope(), 7), Dispatch::Skipped);
    EXPECT_EQ(calls.size(), 1u);

    // A handler may replace itself while it runs.
    dispatcher.on(wire::Envelope::kCursor, [&](const wire::Envelope&, int) {
        dispatcher.on(wire::Envelope::kCursor, [&](const wire::Envelope&, int c) { calls.emplace_back("second", c); });
        calls.emplace_back("first", 0);
    });
    dispatcher.dispatch(envelopeOf(wire::Cursor()), 1);
    dispatcher.dispatch(envelopeOf(wire::Cursor()), 2);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].first, "first");
    EXPECT_EQ(calls[2], std::make_pair(std::string("second"), 2));
}

TEST(WireNames, EnumsReadAsTheProtocolsTexts) {
    // Every touch type has a name, and the name leads back to it.
    const google::protobuf::EnumDescriptor* types = wire::Touch::Type_descriptor();
    for (int i = 0; i < types->value_count(); ++i) {
        const auto type = wire::Touch::Type(types->value(i)->number());
        if (type == wire::Touch::TYPE_UNSPECIFIED) continue;
        EXPECT_FALSE(touchTypeName(type).startsWith(QLatin1Char('#'))) << types->value(i)->name();
        EXPECT_EQ(touchTypeFromName(touchTypeName(type)), type);
    }
    EXPECT_EQ(touchTypeName(wire::Touch::MOUSE_RIGHT_DRAG), QStringLiteral("mouseRightDrag"));
    EXPECT_EQ(touchTypeFromName(QStringLiteral("touchdown")), wire::Touch::TYPE_UNSPECIFIED);
    EXPECT_EQ(touchTypeName(wire::Touch::Type(99)), QStringLiteral("#99"));
    EXPECT_EQ(touchTypeName(wire::Touch::TOUCH_DOWN), QStringLiteral("touchDown"));
    EXPECT_EQ(touchTypeName(wire::Touch::TYPE_UNSPECIFIED), QStringLiteral("unspecified"));
    EXPECT_EQ(touchTypeFromName(QStringLiteral("unspecified")), wire::Touch::TYPE_UNSPECIFIED);
    EXPECT_EQ(refusedReasonName(wire::Refused::WRONG_CODE), QStringLiteral("wrongCode"));
    EXPECT_EQ(refusedReasonName(wire::Refused::TOO_MANY_CLIENTS), QStringLiteral("tooManyClients"));
    EXPECT_EQ(refusedReasonName(wire::Refused::VERSION_MISMATCH), QStringLiteral("versionMismatch"));
    EXPECT_EQ(refusedReasonName(wire::Refused::Reason(42)), QStringLiteral("#42"));
    EXPECT_EQ(transportName(wire::TRANSPORT_UDP), QStringLiteral("udp"));
    EXPECT_EQ(castSourceName(wire::CastRequest::SOURCE_SCREEN), QStringLiteral("screen"));
    EXPECT_EQ(refusedReasonName(wire::Refused::LOG_OUT_BY_SERVER), QStringLiteral("logOutByServer"));
    EXPECT_EQ(passcodeErrorName(wire::PasscodeError::RATE_LIMITED), QStringLiteral("rateLimited"));
    EXPECT_EQ(transportName(wire::TRANSPORT_BRX), QStringLiteral("brx"));
    EXPECT_EQ(castSourceName(wire::CastRequest::SOURCE_FILE), QStringLiteral("file"));
}

}  // namespace
