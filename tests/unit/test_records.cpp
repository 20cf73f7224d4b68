// The records are shared with code that reads them by byte offset: these
// tests write through the named fields and read the raw bytes back, so a
// field moved by a later edit (or by a compiler's padding) is caught.
#include <gtest/gtest.h>

#include <cstring>

#include "casting/SessionRecords.h"

namespace {

template <typename Record>
const char* textAt(const Record& record, size_t offset) {
    return reinterpret_cast<const char*>(&record) + offset;
}

template <typename Record>
int32_t intAt(const Record& record, size_t offset) {
    int32_t value;
    std::memcpy(&value, reinterpret_cast<const char*>(&record) + offset, sizeof value);
    return value;
}

TEST(Records, PanelRecordCarriesCodeAtItsOffsetAndClearsToEmpty) {
    tagDeviceListUnitInfo_ panel;
    std::memset(&panel, 0x5A, sizeof panel);
    std::strcpy(panel.szConnectCode, "AB12CD34");
    EXPECT_STREQ(textAt(panel, 274), "AB12CD34");
    std::strcpy(panel.szAddress, "10.0.0.7");
    EXPECT_STREQ(textAt(panel, 0), "10.0.0.7");

    std::memset(&panel, 0, 292);  // how the client clears a finished connection
    EXPECT_STREQ(panel.szConnectCode, "");
    EXPECT_STREQ(panel.szAddress, "");
}

TEST(Records, ServerAndWindowRecordsHaveTheirFixedShape) {
    tagCodeServerInfo_ server{};
    std::strcpy(server.szIp, "192.168.100.200");  // the longest dotted address fits with its terminator
    server.nPort = 7790;
    EXPECT_STREQ(textAt(server, 0), "192.168.100.200");
    EXPECT_EQ(intAt(server, 16), 7790);

    tagWindowScreenInfo_ window{};
    window.nWindowId = 0x3a00007;
    EXPECT_EQ(sizeof window, 12u);
    EXPECT_EQ(intAt(window, 0), 0x3a00007);
}

TEST(Records, DiscoveryRecordTextsAndNumberAtTheirOffsets) {
    KLUF_DEVICE_INFO info{};
    std::strcpy(info.szDeviceKey, "key-1");
    std::strcpy(info.szInfo, "1");
    std::strcpy(info.szConnectCode, "7K3M9Q2T");
    std::strcpy(info.szDetail, "10.88.0.2");
    std::strcpy(info.szDeviceName, "Room 4 panel");
    info.nValue = 47800;
    EXPECT_STREQ(textAt(info, 12), "key-1");
    EXPECT_STREQ(textAt(info, 60), "1");
    EXPECT_STREQ(textAt(info, 80), "7K3M9Q2T");
    EXPECT_STREQ(textAt(info, 96), "10.88.0.2");
    EXPECT_STREQ(textAt(info, 240), "Room 4 panel");
    EXPECT_EQ(intAt(info, 624), 47800);

    tagDeviceInfo_ device{};
    std::strcpy(device.szModel, "ZV-P65A");
    std::strcpy(device.szName, "Meeting room");
    EXPECT_STREQ(textAt(device, 0), "ZV-P65A");
    EXPECT_STREQ(textAt(device, 32), "Meeting room");
}

TEST(Records, ExceptionParametersAtTheirOffsets) {
    tagNotifyExceptionParams_ params;
    std::memset(&params, 0, sizeof params);
    EXPECT_EQ(sizeof params, 1072u);
    params.nSubCode = 5;
    params.nResult = 1;
    params.nWidth = 3840;
    params.nHeight = 2160;
    std::strcpy(params.szReason, "logOutByServer");
    params.nBitRateKbps = 8000;
    params.nFrameRate = 30;
    params.nDelayMs = 28;
    params.ucLoss = 1;
    EXPECT_EQ(intAt(params, 0), 5);
    EXPECT_EQ(intAt(params, 8), 1);
    EXPECT_EQ(intAt(params, 16), 3840);
    EXPECT_EQ(intAt(params, 20), 2160);
    EXPECT_STREQ(textAt(params, 32), "logOutByServer");
    EXPECT_EQ(intAt(params, 1056), 8000);
    EXPECT_EQ(intAt(params, 1060), 30);
    EXPECT_EQ(intAt(params, 1064), 28);
    EXPECT_EQ(*reinterpret_cast<const uint8_t*>(textAt(params, 1068)), 1);
}

}  // namespace
