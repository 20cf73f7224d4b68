// The portable runtime: bounded copies and plain socket helpers.
#pragma once

#include <cstddef>
#include <cstdint>

// Bounded copy and fill. Return 0 on success; on failure (null pointer, count
// larger than the destination) they change nothing, report the caller's line,
// function and the operation name ("Ktr_MEMCPY_S" / "Ktr_MEMSET_S") through
// the error handler, and return a non-zero errno value.
#define Ktr_Memcpy_s(dst, dstSize, src, count) \
    Ktr_MemcpyS((dst), (dstSize), (src), (count), __LINE__, __FUNCTION__)
#define Ktr_Memset_s(dst, dstSize, value, count) \
    Ktr_MemsetS((dst), (dstSize), (value), (count), __LINE__, __FUNCTION__)

int Ktr_MemcpyS(void* dst, size_t dstSize, const void* src, size_t count, int line, const char* function);
int Ktr_MemsetS(void* dst, size_t dstSize, int value, size_t count, int line, const char* function);

// Where bounded-operation failures go; the default writes a log line.
using KtrSafeErrorHandler = void (*)(int line, const char* function, const char* operation, int error);
void Ktr_SetSafeErrorHandler(KtrSafeErrorHandler handler);

// Sockets. A socket is a plain file descriptor; KTR_INVALID_SOCKET on failure.
using KtrSocket = int;
constexpr KtrSocket KTR_INVALID_SOCKET = -1;
enum KtrSocketType { KTR_SOCK_STREAM = 1, KTR_SOCK_DGRAM = 2 };

struct KtrSockAddr {
    uint32_t ipv4 = 0;  // network byte order
    uint16_t port = 0;  // host byte order
};

KtrSocket Ktr_CreateSocket(KtrSocketType type);
// Parses dotted IPv4 text and a port. Returns 0 on success.
int Ktr_MakeAddrByString(const char* ip, uint16_t port, KtrSockAddr* out);
// Connects within timeoutMs. Returns 0 when connected, -1 on refusal, error
// or time-out (Ktr_GetLastError tells which).
int Ktr_ConnectWithTimeOut(KtrSocket sock, const KtrSockAddr* addr, int timeoutMs);
// how: 0 read side, 1 write side, 2 both.
int Ktr_ShutDown(KtrSocket sock, int how);
int Ktr_CloseSocket(KtrSocket sock);
// errno of the last failed Ktr_ call on this thread (ETIMEDOUT after a time-out).
int Ktr_GetLastError();
// Ends the runtime: closes nothing the caller owns; safe to call more than once.
void Ktr_Fini();
