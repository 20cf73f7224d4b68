// A panel of its own making for the passcode tests: sends one signed
// request to a passcode service with the key in an identity folder (made
// when missing) and prints the answer as a JSON line. It is how a second
// process with another key tries to take over or release a passcode.
//
//   zv-passcode-probe --service HOST:PORT --identity DIR register --passcode P --address A [--port N] [--name X]
//   zv-passcode-probe --service HOST:PORT --identity DIR unregister --passcode P
//
// Prints {"event":"answer","body":"registered","passcode":...} (or the
// error's reason), or {"event":"error","reason":...}; exits 0 when an
// answer came.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <cstdio>
#include <memory>

#include "passcode/PanelProof.h"
#include "passcode/PasscodePins.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "transport/MessageChannel.h"
#include "transport/TlsIdentity.h"

namespace {

void print(QJsonObject fields) {
    std::printf("%s\n", QJsonDocument(fields).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

int fail(const QString& reason) {
    print({{QStringLiteral("event"), QStringLiteral("error")}, {QStringLiteral("reason"), reason}});
    return 2;
}

}  // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption service(QStringLiteral("service"), QStringLiteral("HOST:PORT"), QStringLiteral("HOST:PORT"));
    const QCommandLineOption identity(QStringLiteral("identity"), QStringLiteral("Key folder"), QStringLiteral("DIR"));
    const QCommandLineOption passcode(QStringLiteral("passcode"), QStringLiteral("Passcode"), QStringLiteral("P"));
    const QCommandLineOption address(QStringLiteral("address"), QStringLiteral("Address"), QStringLiteral("A"),
                                     QStringLiteral("10.9.9.9"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("Port"), QStringLiteral("N"),
                                  QStringLiteral("47800"));
    const QCommandLineOption name(QStringLiteral("name"), QStringLiteral("Name"), QStringLiteral("X"),
                                  QStringLiteral("Probe"));
    parser.addOptions({service, identity, passcode, address, port, name});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("register | unregister"));
    parser.process(app);
    const auto target = zv::PasscodeServerAddress::parse(parser.value(service));
    const QString command = parser.positionalArguments().value(0);
    if (!target || !parser.isSet(identity) || (command != "register" && command != "unregister")) {
        return fail(QStringLiteral("usage: see the source"));
    }
    const auto panel = zv::loadOrCreateTlsIdentity(parser.value(identity), QStringLiteral("Probe"));
    if (!panel) return fail(QStringLiteral("no identity"));
    const zv::passcode::PanelSigner signer(panel->privateKey, panel->certificate);

    QString error;
    std::unique_ptr<zv::MessageChannel> channel(
        zv::MessageChannel::connectTlsBlocking(target->host, target->port, 5000, &error));
    if (!channel) return fail(error);
    const QString serviceKey = channel->peerKeyId();

    zv::wire::Envelope request;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (command == QLatin1String("register")) {
        zv::wire::Register body;
        body.set_passcode(parser.value(passcode).toStdString());
        body.set_address(parser.value(address).toStdString());
        body.set_port(parser.value(port).toInt());
        body.set_name(parser.value(name).toStdString());
        body.set_ttl(60);
        signer.sign(body, serviceKey, now);
        request = zv::wrap(body);
    } else {
        zv::wire::Unregister body;
        body.set_passcode(parser.value(passcode).toStdString());
        signer.sign(body, serviceKey, now);
        request = zv::wrap(body);
    }

    int code = 1;
    QObject::connect(channel.get(), &zv::MessageChannel::messageReceived, [&](const zv::wire::Envelope& answer) {
        QJsonObject line{{QStringLiteral("event"), QStringLiteral("answer")},
                         {QStringLiteral("body"), zv::bodyName(answer)},
                         {QStringLiteral("panelKey"), signer.keyId()}};
        if (answer.has_registered()) line.insert(QStringLiteral("passcode"), QString::fromStdString(answer.registered().passcode()));
        if (answer.has_passcode_error())
            line.insert(QStringLiteral("reason"), zv::passcodeErrorName(answer.passcode_error().reason()));
        print(line);
        code = 0;
        app.quit();
    });
    QObject::connect(channel.get(), &zv::MessageChannel::closed, [&](const QString& reason) {
        fail(QStringLiteral("closed: ") + reason);
        app.quit();
    });
    QTimer::singleShot(5000, &app, [&] {
        fail(QStringLiteral("no answer"));
        app.quit();
    });
    channel->send(request);
    app.exec();
    return code;
}
