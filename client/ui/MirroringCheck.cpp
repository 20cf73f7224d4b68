#include "ui/MirroringCheck.h"

std::mutex MirroringCheck::s_mutex;
tagDeviceListUnitInfo_ MirroringCheck::s_panel{};

void MirroringCheck::setDisplayInfo(const tagDeviceListUnitInfo_& panel) {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_panel = panel;
}

tagDeviceListUnitInfo_ MirroringCheck::displayInfo() {
    std::lock_guard<std::mutex> lock(s_mutex);
    return s_panel;
}
