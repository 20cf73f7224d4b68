// The replay program a fuzz target becomes without libFuzzer (gcc builds,
// ctest): it runs the given samples, the files in the folder named by the
// first argument, mutations of them and random bytes, from a fixed start so
// every run tries the same inputs.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace zv_fuzz {

inline int runStandalone(const char* name, int argc, char** argv, std::vector<QByteArray> samples, int mutations,
                         int randoms, int maxRandomSize = 300) {
    if (argc > 1) {
        const QDir corpus(QString::fromLocal8Bit(argv[1]));
        for (const QString& file : corpus.entryList(QDir::Files)) {
            QFile in(corpus.filePath(file));
            if (in.open(QIODevice::ReadOnly)) samples.push_back(in.readAll());
        }
    }
    if (samples.empty()) samples.push_back(QByteArray());
    auto run = [](const QByteArray& input) {
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.constData()), size_t(input.size()));
    };
    for (const QByteArray& sample : samples) run(sample);

    std::mt19937 random(20240601u);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < mutations; ++round) {
        QByteArray input = samples[size_t(random() % samples.size())];
        const int edits = 1 + int(random() % 8);
        for (int e = 0; e < edits; ++e) {
            const int pos = input.isEmpty() ? 0 : int(random() % uint32_t(input.size()));
            switch (random() % 4) {
            case 0:
                if (!input.isEmpty()) input[pos] = char(byte(random));
                break;
            case 1:
                input.insert(pos, char(byte(random)));
                break;
            case 2:
                if (!input.isEmpty()) input.remove(pos, 1);
                break;
            default:
                input += samples[size_t(random() % samples.size())];
                break;
            }
        }
        run(input);
    }
    for (int round = 0; round < randoms; ++round) {
        QByteArray input(int(random() % uint32_t(maxRandomSize)), '\0');
        for (char& c : input) c = char(byte(random));
        run(input);
    }
    std::printf("%s: %zu samples and %d generated inputs passed\n", name, samples.size(), mutations + randoms);
    return 0;
}

}  // namespace zv_fuzz
