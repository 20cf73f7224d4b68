#include "casting/KtrRuntime.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "casting/Log.h"

namespace {

thread_local int t_lastError = 0;

void logSafeError(int line, const char* function, const char* operation, int error) {
    LOG(ERROR) << "[" << (function ? function : "?") << "] " << operation << " failed at line " << line
               << ", error " << error;
}

std::atomic<KtrSafeErrorHandler> g_safeErrorHandler{&logSafeError};

int reportSafeError(int line, const char* function, const char* operation, int error) {
    g_safeErrorHandler.load()(line, function, operation, error);
    return error;
}

int fail(int error) {
    t_lastError = error;
    return -1;
}

}  // namespace

void Ktr_SetSafeErrorHandler(KtrSafeErrorHandler handler) {
    g_safeErrorHandler.store(handler ? handler : &logSafeError);
}

int Ktr_MemcpyS(void* dst, size_t dstSize, const void* src, size_t count, int line, const char* function) {
    if (dst == nullptr || src == nullptr) return reportSafeError(line, function, "Ktr_MEMCPY_S", EINVAL);
    if (count > dstSize) return reportSafeError(line, function, "Ktr_MEMCPY_S", ERANGE);
    std::memmove(dst, src, count);
    return 0;
}

int Ktr_MemsetS(void* dst, size_t dstSize, int value, size_t count, int line, const char* function) {
    if (dst == nullptr) return reportSafeError(line, function, "Ktr_MEMSET_S", EINVAL);
    if (count > dstSize) return reportSafeError(line, function, "Ktr_MEMSET_S", ERANGE);
    std::memset(dst, value, count);
    return 0;
}

KtrSocket Ktr_CreateSocket(KtrSocketType type) {
    const int kind = type == KTR_SOCK_DGRAM ? SOCK_DGRAM : SOCK_STREAM;
    const int fd = socket(AF_INET, kind | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        t_lastError = errno;
        return KTR_INVALID_SOCKET;
    }
    return fd;
}

int Ktr_MakeAddrByString(const char* ip, uint16_t port, KtrSockAddr* out) {
    if (ip == nullptr || out == nullptr) return fail(EINVAL);
    in_addr parsed{};
    if (inet_pton(AF_INET, ip, &parsed) != 1) return fail(EINVAL);
    out->ipv4 = parsed.s_addr;
    out->port = port;
    return 0;
}

int Ktr_ConnectWithTimeOut(KtrSocket sock, const KtrSockAddr* addr, int timeoutMs) {
    if (sock < 0 || addr == nullptr) return fail(EINVAL);
    const int flags = fcntl(sock, F_GETFL, 0);
    if (flags < 0 || fcntl(sock, F_SETFL, flags | O_NONBLOCK) < 0) return fail(errno);

    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = addr->ipv4;
    sa.sin_port = htons(addr->port);
    int result = connect(sock, reinterpret_cast<sockaddr*>(&sa), sizeof(sa));
    int error = result == 0 ? 0 : errno;
    if (result != 0 && error == EINPROGRESS) {
        pollfd pfd{sock, POLLOUT, 0};
        int ready;
        do {
            ready = poll(&pfd, 1, timeoutMs < 0 ? 0 : timeoutMs);
        } while (ready < 0 && errno == EINTR);
        if (ready == 0) {
            error = ETIMEDOUT;
        } else if (ready < 0) {
            error = errno;
        } else {
            socklen_t len = sizeof(error);
            if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &len) != 0) error = errno;
        }
    }
    fcntl(sock, F_SETFL, flags);
    return error == 0 ? 0 : fail(error);
}

int Ktr_ShutDown(KtrSocket sock, int how) {
    const int mode = how == 0 ? SHUT_RD : how == 1 ? SHUT_WR : SHUT_RDWR;
    return shutdown(sock, mode) == 0 ? 0 : fail(errno);
}

int Ktr_CloseSocket(KtrSocket sock) { return close(sock) == 0 ? 0 : fail(errno); }

int Ktr_GetLastError() { return t_lastError; }

void Ktr_Fini() { ZV_LOG(INFO) << " portable runtime finished"; }
