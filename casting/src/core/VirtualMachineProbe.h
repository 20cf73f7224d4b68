// Tells whether this PC is a virtual machine, from the firmware's DMI strings
// and the CPU's hypervisor flag. The folders are parameters so tests can feed
// recorded files.
#pragma once

#include <string>

namespace zv {

struct VirtualMachineProbe {
    std::string dmiFolder = "/sys/class/dmi/id";
    std::string cpuInfoPath = "/proc/cpuinfo";

    // The hypervisor's name ("QEMU", "VMware", ...) or empty on bare metal.
    std::string detect() const;
};

}  // namespace zv
