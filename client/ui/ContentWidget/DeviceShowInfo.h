// A discovered panel as the pages show it, and how a panel's connect code
// changes in the pages' code maps.
#pragma once

#include <QMetaType>
#include <QString>

#include "casting/SessionRecords.h"

namespace qorquicomponents {

struct DeviceShowInfo {
    QString info;         // protocol version text
    QString detail;       // the panel's address
    int value = 0;        // the panel's control port
    QString deviceName;
    QString deviceKey;
    QString connectCode;

    // Reads the six items from a discovery record.
    static DeviceShowInfo fromRecord(const KLUF_DEVICE_INFO& record);
};

enum CodeState : int {
    CodeAdd = 0,
    CodeUpdate = 1,
    CodeDelete = 2,
};

}  // namespace qorquicomponents

Q_DECLARE_METATYPE(qorquicomponents::DeviceShowInfo)
