#include "VirtualMachineProbe.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace zv {
namespace {

std::string readFirstLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

bool containsNoCase(std::string text, std::string needle) {
    auto lower = [](std::string& s) {
        std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    };
    lower(text);
    lower(needle);
    return text.find(needle) != std::string::npos;
}

}  // namespace

std::string VirtualMachineProbe::detect() const {
    // Vendor and product strings hypervisors put into the firmware tables.
    static const char* const kSignatures[][2] = {
        {"qemu", "QEMU"},           {"kvm", "KVM"},
        {"vmware", "VMware"},       {"virtualbox", "VirtualBox"},
        {"innotek", "VirtualBox"},  {"xen", "Xen"},
        {"bochs", "Bochs"},         {"parallels", "Parallels"},
        {"virtual machine", "Hyper-V"}, {"bhyve", "bhyve"},
        {"openstack", "OpenStack"}, {"google compute engine", "Google"},
        {"amazon ec2", "EC2"},      {"cloud hypervisor", "Cloud Hypervisor"},
    };
    for (const char* field : {"sys_vendor", "product_name", "board_vendor", "bios_vendor", "chassis_vendor"}) {
        const std::string value = readFirstLine(dmiFolder + "/" + field);
        if (value.empty()) continue;
        for (const auto& signature : kSignatures) {
            if (containsNoCase(value, signature[0])) return signature[1];
        }
    }
    // No firmware hint (containers, some clouds): the CPU says it runs under a hypervisor.
    std::ifstream cpu(cpuInfoPath);
    std::string line;
    while (std::getline(cpu, line)) {
        if (line.rfind("flags", 0) != 0) continue;
        std::istringstream words(line);
        std::string word;
        while (words >> word) {
            if (word == "hypervisor") return "hypervisor";
        }
        break;  // every CPU lists the same flags
    }
    return {};
}

}  // namespace zv
