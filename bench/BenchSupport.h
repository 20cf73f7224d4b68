// Small helpers the benchmarks share: command-line options, percentiles,
// the CPU time of a process and the "key=value" lines the roles print.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace zvbench {

inline std::string argValue(int argc, char** argv, const std::string& name, const std::string& fallback = "") {
    for (int i = 1; i + 1 < argc; ++i) {
        if (name == argv[i]) return argv[i + 1];
    }
    return fallback;
}
inline bool hasFlag(int argc, char** argv, const std::string& name) {
    for (int i = 1; i < argc; ++i) {
        if (name == argv[i]) return true;
    }
    return false;
}

inline double percentile(std::vector<double> values, double p) {
    if (values.empty()) return NAN;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, static_cast<size_t>(p * (values.size() - 1) + 0.5));
    return values[index];
}

inline double longestGapMs(const std::vector<double>& arrivals) {
    double longest = 0;
    for (size_t i = 1; i < arrivals.size(); ++i) longest = std::max(longest, arrivals[i] - arrivals[i - 1]);
    return longest;
}

// CPU time of one process, from /proc/<pid>/stat.
struct CpuClock {
    pid_t pid = 0;
    double startTicks = 0;
    std::chrono::steady_clock::time_point startWall;
    static double ticks(pid_t pid) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        const auto close = text.rfind(')');
        if (close == std::string::npos) return 0;
        std::istringstream fields(text.substr(close + 2));
        std::string field;
        double utime = 0, stime = 0;
        for (int i = 3; fields >> field; ++i) {
            if (i == 14) utime = std::stod(field);
            if (i == 15) {
                stime = std::stod(field);
                break;
            }
        }
        return utime + stime;
    }
    void start(pid_t which) {
        pid = which;
        startTicks = ticks(pid);
        startWall = std::chrono::steady_clock::now();
    }
    // Percent of one core since start().
    double percent() const {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - startWall).count();
        return (ticks(pid) - startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK)) / seconds * 100.0;
    }
};

inline std::map<std::string, std::string> parseFields(const std::string& line) {
    std::map<std::string, std::string> fields;
    std::istringstream in(line);
    std::string token;
    while (in >> token) {
        const auto eq = token.find('=');
        if (eq != std::string::npos) fields[token.substr(0, eq)] = token.substr(eq + 1);
    }
    return fields;
}

inline std::vector<double> parseList(const std::string& line) {
    std::vector<double> values;
    std::istringstream in(line.substr(line.find(' ') + 1));
    double value = 0;
    while (in >> value) values.push_back(value);
    return values;
}

}  // namespace zvbench

