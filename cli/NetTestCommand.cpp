// nettest: what the client's network test window shows, as JSON lines: the
// usable local addresses with their gateways, delay samples to the gateway
// and the server with their verdicts, and whether a panel's TCP port answers.
#include <QCommandLineParser>
#include <QNetworkInterface>

#include "Commands.h"
#include "JsonLines.h"
#include "casting/CClientConfig.h"
#include "casting/KtrRuntime.h"
#include "casting/PingService.h"
#include "casting/Singleton.h"

namespace cli {
namespace {

constexpr int kSampleTimeoutMs = 1000;
constexpr uint16_t kPanelPort = 47800;

QJsonObject sampleLine(const char* target, const std::string& address, int delay, PingService::Method method) {
    return {{QStringLiteral("event"), QStringLiteral("delay")},
            {QStringLiteral("target"), QString::fromLatin1(target)},
            {QStringLiteral("address"), QString::fromStdString(address)},
            {QStringLiteral("ok"), delay >= 0},
            {QStringLiteral("delayMs"), delay < 0 ? 999 : qMax(delay, 1)},
            {QStringLiteral("verdict"), QString::fromLatin1(PingService::delayVerdict(delay))},
            {QStringLiteral("method"),
             method == PingService::Method::Icmp ? QStringLiteral("icmp") : QStringLiteral("tcp-connect")}};
}

}  // namespace

int runNetTest(const QStringList& arguments) {
    QCommandLineParser parser;
    const QCommandLineOption server(QStringLiteral("server"),
                                    QStringLiteral("Server to sample (default: the passcode server setting)."),
                                    QStringLiteral("HOST"));
    const QCommandLineOption address(QStringLiteral("address"), QStringLiteral("Panel address whose TCP port to try."),
                                     QStringLiteral("IP"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("The panel's TCP port (default 47800)."),
                                  QStringLiteral("N"), QString::number(kPanelPort));
    const QCommandLineOption samples(QStringLiteral("samples"), QStringLiteral("Delay samples each (default 3)."),
                                     QStringLiteral("N"), QStringLiteral("3"));
    parser.addOptions({server, address, port, samples});
    bool portOk = false;
    bool samplesOk = false;
    const uint portNumber = parser.parse(arguments) ? parser.value(port).toUInt(&portOk) : 0;
    const int sampleCount = parser.value(samples).toInt(&samplesOk);
    if (!portOk || portNumber == 0 || portNumber > 65535 || !samplesOk || sampleCount < 0) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), parser.errorText().isEmpty()
                                                ? QStringLiteral("--port takes 1 to 65535, --samples 0 and up")
                                                : parser.errorText()}});
        return 2;
    }

    const auto gateways = PingService::defaultGateways();
    std::string firstGateway;
    int addresses = 0;
    for (const QNetworkInterface& nic : QNetworkInterface::allInterfaces()) {
        if (!(nic.flags() & QNetworkInterface::IsUp) || (nic.flags() & QNetworkInterface::IsLoopBack)) continue;
        const auto found = gateways.find(nic.name().toStdString());
        const std::string gateway = found != gateways.end() ? found->second : std::string();
        for (const QNetworkAddressEntry& entry : nic.addressEntries()) {
            if (entry.ip().protocol() != QAbstractSocket::IPv4Protocol) continue;
            ++addresses;
            if (firstGateway.empty()) firstGateway = gateway;
            printLine({{QStringLiteral("event"), QStringLiteral("address")},
                       {QStringLiteral("address"), entry.ip().toString()},
                       {QStringLiteral("interface"), nic.name()},
                       {QStringLiteral("gateway"), QString::fromStdString(gateway)}});
        }
    }
    if (addresses == 0) {
        printLine({{QStringLiteral("event"), QStringLiteral("error")},
                   {QStringLiteral("text"), QStringLiteral("There is no network at present, please check and try again")}});
        return 1;
    }

    const std::string serverName =
        parser.isSet(server) ? parser.value(server).toStdString() : Singleton<CClientConfig>::getInstance().getServerIP();
    const std::string serverAddress = PingService::resolve(serverName);
    if (serverName.empty()) {
        printLine({{QStringLiteral("event"), QStringLiteral("delay")}, {QStringLiteral("target"), QStringLiteral("server")},
                   {QStringLiteral("verdict"), QStringLiteral("No server address is set.")}});
    } else if (serverAddress.empty()) {
        printLine({{QStringLiteral("event"), QStringLiteral("delay")}, {QStringLiteral("target"), QStringLiteral("server")},
                   {QStringLiteral("address"), QStringLiteral("---")}, {QStringLiteral("ok"), false},
                   {QStringLiteral("delayMs"), 999}, {QStringLiteral("verdict"), QStringLiteral("Error.Ip Parsing exception.")}});
    }
    for (int i = 0; i < sampleCount; ++i) {
        PingService::Method method = PingService::Method::NotMeasured;
        if (!firstGateway.empty()) {
            const int delay = PingService::measureDelayMs(firstGateway, 80, kSampleTimeoutMs, &method);
            printLine(sampleLine("gateway", firstGateway, delay, method));
        }
        if (!serverAddress.empty()) {
            const int delay = PingService::measureDelayMs(serverAddress, static_cast<uint16_t>(portNumber),
                                                          kSampleTimeoutMs, &method);
            printLine(sampleLine("server", serverAddress, delay, method));
        }
    }

    if (parser.isSet(address)) {
        int error = 0;
        bool reachable = false;
        const KtrSocket socket = Ktr_CreateSocket(KTR_SOCK_STREAM);
        KtrSockAddr target;
        if (socket != KTR_INVALID_SOCKET &&
            Ktr_MakeAddrByString(parser.value(address).toLatin1().constData(), static_cast<uint16_t>(portNumber),
                                 &target) == 0 &&
            Ktr_ConnectWithTimeOut(socket, &target, 5000) == 0) {
            reachable = true;
        } else {
            error = Ktr_GetLastError();
        }
        if (socket != KTR_INVALID_SOCKET) {
            Ktr_ShutDown(socket, 2);
            Ktr_CloseSocket(socket);
        }
        printLine({{QStringLiteral("event"), QStringLiteral("tcp")},
                   {QStringLiteral("address"), parser.value(address)},
                   {QStringLiteral("port"), static_cast<int>(portNumber)},
                   {QStringLiteral("reachable"), reachable},
                   {QStringLiteral("error"), error}});
    }
    return 0;
}

}  // namespace cli
