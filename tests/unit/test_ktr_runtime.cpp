// Bounded copies and the socket helpers, against real sockets on loopback.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "casting/KtrRuntime.h"

namespace {

struct Report {
    int line;
    std::string function;
    std::string operation;
    int error;
};
std::vector<Report> g_reports;

void recordReport(int line, const char* function, const char* operation, int error) {
    g_reports.push_back({line, function, operation, error});
}

class KtrRuntime : public ::testing::Test {
protected:
    void SetUp() override {
        g_reports.clear();
        Ktr_SetSafeErrorHandler(&recordReport);
    }
    void TearDown() override { Ktr_SetSafeErrorHandler(nullptr); }
};

TEST_F(KtrRuntime, BoundedCopyAndFillRefuseOverflowAndReportWhere) {
    char field[9];
    std::memset(field, 'x', sizeof field);
    EXPECT_EQ(Ktr_Memcpy_s(field, sizeof field, "ABCD1234", 9), 0);
    EXPECT_STREQ(field, "ABCD1234");
    EXPECT_TRUE(g_reports.empty());

    const int line = __LINE__ + 1;
    EXPECT_NE(Ktr_Memcpy_s(field, sizeof field, "ABCD12345", 10), 0);
    EXPECT_STREQ(field, "ABCD1234") << "a refused copy must leave the field as it was";
    ASSERT_EQ(g_reports.size(), 1u);
    EXPECT_EQ(g_reports[0].line, line);
    EXPECT_EQ(g_reports[0].operation, "Ktr_MEMCPY_S");
    EXPECT_EQ(g_reports[0].function, "TestBody");  // the calling function, as __FUNCTION__ names it

    EXPECT_NE(Ktr_Memcpy_s(nullptr, 4, "a", 1), 0);
    EXPECT_NE(Ktr_Memcpy_s(field, sizeof field, nullptr, 1), 0);
    EXPECT_NE(Ktr_Memset_s(field, sizeof field, 0, sizeof field + 1), 0);
    EXPECT_STREQ(field, "ABCD1234");
    EXPECT_EQ(g_reports.size(), 4u);
    EXPECT_EQ(g_reports.back().operation, "Ktr_MEMSET_S");

    EXPECT_EQ(Ktr_Memset_s(field, sizeof field, 0, sizeof field), 0);
    EXPECT_STREQ(field, "");
}

// A listening socket on an ephemeral loopback port.
struct Listener {
    int fd = -1;
    uint16_t port = 0;
    Listener() {
        fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in sa{};
        sa.sin_family = AF_INET;
        sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
        listen(fd, 4);
        socklen_t len = sizeof sa;
        getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len);
        port = ntohs(sa.sin_port);
    }
    ~Listener() { close(fd); }
};

TEST_F(KtrRuntime, TcpProbeReachesAListenerAndReportsAClosedPort) {
    KtrSockAddr addr;
    ASSERT_NE(Ktr_MakeAddrByString("not an address", 80, &addr), 0);
    ASSERT_NE(Ktr_MakeAddrByString("300.1.1.1", 80, &addr), 0);

    uint16_t closedPort;
    {
        Listener open;
        ASSERT_GT(open.port, 0);
        ASSERT_EQ(Ktr_MakeAddrByString("127.0.0.1", open.port, &addr), 0);
        KtrSocket sock = Ktr_CreateSocket(KTR_SOCK_STREAM);
        ASSERT_NE(sock, KTR_INVALID_SOCKET);
        EXPECT_EQ(Ktr_ConnectWithTimeOut(sock, &addr, 2000), 0);
        EXPECT_EQ(Ktr_ShutDown(sock, 2), 0);
        EXPECT_EQ(Ktr_CloseSocket(sock), 0);
        closedPort = open.port;
    }  // the listener is gone: its port now refuses

    ASSERT_EQ(Ktr_MakeAddrByString("127.0.0.1", closedPort, &addr), 0);
    KtrSocket sock = Ktr_CreateSocket(KTR_SOCK_STREAM);
    EXPECT_EQ(Ktr_ConnectWithTimeOut(sock, &addr, 2000), -1);
    EXPECT_EQ(Ktr_GetLastError(), ECONNREFUSED);
    Ktr_CloseSocket(sock);
    Ktr_Fini();
    Ktr_Fini();  // twice is harmless
}

}  // namespace
