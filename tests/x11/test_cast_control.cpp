// The PC's consent to touch control, in one process over loopback: the real
// panel service and cast service, the PC's real session and cast (capturing a
// private Xvfb). A panel that grants control nobody asked for, or sends
// touches outside the picture, must not move the PC's mouse; once the PC's
// user switches control on, touches arrive.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

#include "CastService.h"
#include "CodeKeeper.h"
#include "PanelService.h"
#include "protocol/WireCodec.h"
#include "session/CastSession.h"
#include "session/ClientSession.h"
#include "transport/KnownPanels.h"
#include "transport/TlsIdentity.h"

#include "XvfbSession.h"

namespace {

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_cast_control";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

template <typename Pred>
bool waitFor(Pred pred, int timeoutMs = 15000) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!pred()) {
        if (deadline.hasExpired()) return false;
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

struct Touch {
    std::string type;
    int x, y;
};
std::vector<Touch> g_touches;  // what the PC's reverse-control callback got

int onTouch(CtrlMouseInfo_S* info, bool, int, int, void*) {
    g_touches.push_back({info->strType, info->nX, info->nY});
    return 0;
}

struct Event {
    tagNotifyExceptionType_ type;
    int result;
};

TEST(CastControl, OnlyTheUserOfThePcSwitchesTouchControlOn) {
    ensureApp();
    zvtest::XvfbSession x{"640x480x24"};
    ASSERT_TRUE(x.ready());
    QTemporaryDir dir;
    qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toUtf8());
    const auto identity = zv::loadOrCreateTlsIdentity(dir.filePath(QStringLiteral("panel")), QStringLiteral("Panel"));
    ASSERT_TRUE(identity);

    receiver::CodeKeeper codes{0x7f000001, QStringLiteral("7K3M9Q2T"), 0};
    receiver::PanelService::Settings settings;
    settings.name = QStringLiteral("Panel");
    settings.listenAddress = QHostAddress::LocalHost;
    settings.port = 0;
    settings.access = zv::PanelAccess::Open;  // the PC comes by address, without the code
    receiver::PanelService panel(settings, identity->privateKey, identity->certificate, identity->keyId, &codes);
    QString error;
    ASSERT_TRUE(panel.start(&error)) << error.toStdString();
    receiver::CastService panelCast(receiver::CastService::Settings{}, &panel);

    std::vector<Event> events;
    auto raise = [&events](tagNotifyExceptionType_ type, const std::function<void(tagNotifyExceptionParams_&)>& fill) {
        tagNotifyExceptionParams_ params{};
        if (fill) fill(params);
        events.push_back({type, params.nResult});
    };
    zv::ClientSession session({raise}, zv::CodeResolver::DiscoveryLookup{},
                              std::make_shared<zv::KnownPanels>(dir.filePath(QStringLiteral("pc/known-panels"))));
    zv::CastSession cast(&session, raise, [](uint32_t) {});
    zv::LoginTarget target;
    target.address = QStringLiteral("127.0.0.1");
    target.port = panel.port();
    zv::wire::Hello hello;
    hello.set_major(zv::kProtocolMajor);
    hello.set_minor(zv::kProtocolMinor);
    hello.set_host("control-test");
    std::optional<uint32_t> loginError;
    session.login(target, hello, [&](const zv::ClientSession::LoginResult& r) { loginError = r.error; });
    ASSERT_TRUE(waitFor([&] { return loginError.has_value(); }));
    ASSERT_EQ(*loginError, 0u);
    ASSERT_EQ(panel.clients().size(), 1);
    const qint64 client = panel.clients().front().id;

    zv::CastOptions options;
    options.transport = PROTOCOL_TCP;
    options.audio = false;
    options.fps = 10;
    options.reverseCallback = &onTouch;
    std::optional<ProjectOrShareReqResult> result;
    cast.request(options, [&](ProjectOrShareReqResult r, uint32_t) { result = r; });
    ASSERT_TRUE(waitFor([&] { return result.has_value(); }));
    ASSERT_EQ(*result, SUCCESS);
    ASSERT_TRUE(panelCast.isCasting());

    // Messages from the panel are handled in order: a statistics report
    // after them shows they were all seen.
    auto sendThenSync = [&](const std::vector<zv::wire::Envelope>& messages) {
        const size_t before = events.size();
        for (const auto& m : messages) ASSERT_TRUE(panel.sendToClient(client, m));
        ASSERT_TRUE(panel.sendToClient(client, zv::wrap(zv::wire::CastStats())));
        ASSERT_TRUE(waitFor([&] {
            for (size_t i = before; i < events.size(); ++i)
                if (events[i].type == NOTIFY_STREAM_STATISTICS) return true;
            return false;
        }));
    };
    auto touch = [](zv::wire::Touch::Type type, int x, int y) {
        zv::wire::Touch t;
        t.set_type(type);
        t.set_x(x);
        t.set_y(y);
        return zv::wrap(t);
    };
    auto grants = [&] {
        int n = 0;
        for (const Event& e : events) n += e.type == NOTIFY_REVERSE_CONTROL_ANSWER && e.result == 1 ? 1 : 0;
        return n;
    };

    // A grant nobody asked for, then touches: ignored.
    zv::wire::CastControlState unasked;
    unasked.set_on(true);
    sendThenSync({zv::wrap(unasked), touch(zv::wire::Touch::TOUCH_DOWN, 10, 20)});
    EXPECT_EQ(grants(), 0);
    EXPECT_TRUE(g_touches.empty());

    // The user asks; the panel grants; its touches now reach the PC.
    ASSERT_TRUE(cast.setControl(true));
    ASSERT_TRUE(waitFor([&] { return grants() == 1; }));
    panelCast.touch(QStringLiteral("touchDown"), 100, 200);
    ASSERT_TRUE(waitFor([] { return g_touches.size() == 1; }));
    EXPECT_EQ(g_touches[0].type, "touchDown");
    EXPECT_EQ(g_touches[0].x, 100);
    EXPECT_EQ(g_touches[0].y, 200);

    // Outside 0..65535 or of no known type: dropped; the edge itself is fine.
    sendThenSync({touch(zv::wire::Touch::TOUCH_MOVE, 65536, 5), touch(zv::wire::Touch::TOUCH_MOVE, 5, -1),
                  touch(zv::wire::Touch::TYPE_UNSPECIFIED, 5, 5), touch(zv::wire::Touch::Type(99), 5, 5),
                  touch(zv::wire::Touch::TOUCH_UP, 65535, 0)});
    ASSERT_EQ(g_touches.size(), 2u);
    EXPECT_EQ(g_touches[1].type, "touchUp");
    EXPECT_EQ(g_touches[1].x, 65535);

    // Switched off by the user: a later unasked grant is ignored again.
    ASSERT_TRUE(cast.setControl(false));
    sendThenSync({zv::wrap(unasked), touch(zv::wire::Touch::TOUCH_DOWN, 1, 1)});
    EXPECT_EQ(grants(), 1);
    EXPECT_EQ(g_touches.size(), 2u);

    cast.stop(QStringLiteral("done"));
    ASSERT_TRUE(waitFor([&] { return !panelCast.isCasting(); }));
    session.logout();
}

}  // namespace
