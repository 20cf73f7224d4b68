// The SRTP stage alone, for the latency benchmark: RTP packets of a
// 1080p30 cast's size pushed one at a time through srtpenc ─▶ srtpdec (or
// straight through, for comparison), timing each packet's way and the CPU
// it takes. Glass-to-glass runs vary by several milliseconds from run to
// run (the capture's phase against the drawing clock), far more than this
// stage can add; this measures the stage's own cost precisely.
#pragma once

#include <string>

struct SrtpStageTiming {
    double medianUs = 0;        // per packet, push to arrival
    double p99Us = 0;
    double cpuUsPerPacket = 0;  // this process's user + system time
    std::string error;
};

// packets: how many 1400-byte RTP packets; encrypted: through SRTP or not.
SrtpStageTiming timeSrtpStage(int packets, bool encrypted);
