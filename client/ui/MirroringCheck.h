// The mirroring check (the PC's casting conditions). The session controller
// tells it which panel the PC is connected to.
#pragma once

#include <mutex>

#include "casting/SessionRecords.h"

class MirroringCheck {
public:
    // The connected panel, or an all-zero record when there is none.
    static void setDisplayInfo(const tagDeviceListUnitInfo_& panel);
    static tagDeviceListUnitInfo_ displayInfo();

private:
    static std::mutex s_mutex;
    static tagDeviceListUnitInfo_ s_panel;
};
