// Cost of the settings store's getters and setters: the client reads
// settings on the GUI thread at every connect and cast start, so a read must
// stay far below a frame's time.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "casting/CClientConfig.h"

namespace {

std::string scratchDatabase() {
    char folder[] = "/tmp/zv-bench-settings-XXXXXX";
    const char* made = mkdtemp(folder);
    return std::string(made != nullptr ? made : "/tmp") + "/settings.db";
}

void BM_ReadProtocol(benchmark::State& state) {
    CClientConfig config(scratchDatabase());
    for (auto _ : state) benchmark::DoNotOptimize(config.getProType());
}
BENCHMARK(BM_ReadProtocol);

void BM_ReadHostName(benchmark::State& state) {
    CClientConfig config(scratchDatabase());
    for (auto _ : state) benchmark::DoNotOptimize(config.getHostName());
}
BENCHMARK(BM_ReadHostName);

void BM_WriteSwitch(benchmark::State& state) {
    CClientConfig config(scratchDatabase());
    int value = 0;
    for (auto _ : state) config.updateShowDelay(value ^= 1);
}
BENCHMARK(BM_WriteSwitch);

}  // namespace

BENCHMARK_MAIN();
