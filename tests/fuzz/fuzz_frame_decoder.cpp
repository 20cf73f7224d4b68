// Fuzz target: arbitrary bytes through the frame decoder (whole, and cut at a
// point the input chooses), every decoded map through every message reader,
// and the bytes as a payload of one frame and as a typed connect code.
// With ZV_FUZZ_STANDALONE it is a plain program that replays the samples in
// tests/fuzz/corpus, built-in samples, their mutations and random bytes.
#include <cstddef>
#include <cstdint>

#include <QByteArray>
#include <QCborMap>
#include <QString>

#include "protocol/ConnectCode.h"
#include "protocol/MessageFraming.h"
#include "protocol/Messages.h"

namespace {

void parseEverything(const QCborMap& map) {
    QString error;
    (void)zv::parseHello(map, &error);
    (void)zv::parseWelcome(map, &error);
    (void)zv::parseRefused(map, &error);
    (void)zv::parseHeartbeat(map, &error);
    (void)zv::parseReport(map, &error);
    (void)zv::parseBye(map, &error);
    (void)zv::parseRegister(map, &error);
    (void)zv::parseRegistered(map, &error);
    (void)zv::parseResolve(map, &error);
    (void)zv::parseResolved(map, &error);
    (void)zv::parseUnregister(map, &error);
    (void)zv::parseUnregistered(map, &error);
    (void)zv::parseError(map, &error);
    (void)zv::isKnownMessageType(zv::messageType(map));
}

void decodeAll(zv::FrameDecoder& decoder, const QByteArray& bytes) {
    for (const QCborMap& map : decoder.feed(bytes)) parseEverything(map);
    if (decoder.hasError() && decoder.errorString().isEmpty()) __builtin_trap();  // an error always says why
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));

    zv::FrameDecoder whole;
    decodeAll(whole, bytes);

    // The same stream in two pieces must give the same result.
    if (size > 0) {
        const int cut = data[0] % int(size);
        zv::FrameDecoder split;
        decodeAll(split, bytes.left(cut));
        decodeAll(split, bytes.mid(cut));
        if (split.hasError() != whole.hasError()) __builtin_trap();
    }

    // The bytes as the payload of one well-formed frame reach the CBOR parsing.
    if (size > 0 && size <= zv::kMaxFrameBytes) {
        QByteArray frame(4, '\0');
        frame[0] = char(size >> 24);
        frame[1] = char(size >> 16);
        frame[2] = char(size >> 8);
        frame[3] = char(size);
        zv::FrameDecoder payload;
        decodeAll(payload, frame + bytes);
    }

    if (size <= 64) {
        const QString code = zv::code::normalize(QString::fromUtf8(bytes));
        if (zv::code::isValidCode(code) && code.size() == zv::code::kConnectCodeLength) {
            const auto address = zv::code::decodeAddress(code);
            if (!address) __builtin_trap();
            if (zv::code::decodeAddress(zv::code::makeCode(*address, 0)) != address) __builtin_trap();
        }
    }
    return 0;
}

#ifdef ZV_FUZZ_STANDALONE
#include <QDir>
#include <QFile>

#include <cstdio>
#include <random>
#include <vector>

int main(int argc, char** argv) {
    std::vector<QByteArray> samples = {
        QByteArray::fromHex("0000000ba26174626862637365710700"),
        QByteArray::fromHex("00000010a26174636279656672656173" "6f6e6178"),
        QByteArray::fromHex("00000000"),
        QByteArray::fromHex("ffffffff"),
        QByteArray::fromHex("00000004a1617401"),
        QByteArray::fromHex("0000000a9bffffffffffffffff00"),
        QByteArray::fromHex("0000000dbf6174626862ff"),
        QByteArray("012g-28t5"),
    };
    // Sample files: the folder given as the first argument.
    if (argc > 1) {
        const QDir corpus(QString::fromLocal8Bit(argv[1]));
        for (const QString& name : corpus.entryList(QDir::Files)) {
            QFile file(corpus.filePath(name));
            if (file.open(QIODevice::ReadOnly)) samples.push_back(file.readAll());
        }
    }
    auto run = [](const QByteArray& input) {
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.constData()), size_t(input.size()));
    };
    for (const QByteArray& sample : samples) run(sample);

    std::mt19937 random(20240601u);  // fixed: every run tries the same inputs
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 20000; ++round) {
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
    for (int round = 0; round < 2000; ++round) {
        QByteArray input(int(random() % 300), '\0');
        for (char& c : input) c = char(byte(random));
        run(input);
    }
    std::printf("fuzz_frame_decoder: %zu samples and 22000 generated inputs passed\n", samples.size());
    return 0;
}
#endif
