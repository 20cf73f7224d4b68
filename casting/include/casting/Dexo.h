/* The stream player of the casting library: decodes the panel's stream (as
 * delivered by CManageAll::shareResq's stream callback) and draws it into an
 * X11 window of the caller.
 *
 * Calling pattern (one port per shown stream):
 *
 *   int port = -1;
 *   Dexo_GetPort(&port);
 *   Dexo_SetRunTimeInfoCallBackEx(port, DEXO_MODULE_DECODER, onInfo, user);
 *   Dexo_SetRunTimeInfoCallbackType(port, DEXO_MODULE_DECODER,
 *                                   DEXO_INFO_DECODE_ERROR | DEXO_INFO_STREAM_ERROR, 1);
 *   Dexo_SetStreamOpenMode(port, DEXO_STREAM_REALTIME);
 *   unsigned char header[DEXO_HEADER_SIZE];
 *   DexoHeader_Default(header);                        // the "ZDXF" header
 *   Dexo_OpenStream(port, header, DEXO_HEADER_SIZE, 0x500000);
 *   Dexo_SetDisplayBuf(port, 0xFFFFFFFFu);             // fewest pictures queued
 *   Dexo_SyncToAudio(port, 0); Dexo_PlaySound(port); Dexo_SetDecodeERC(port, 1);
 *   Dexo_Play(port, widget->winId());                  // GUI thread
 *   ... Dexo_InputData(port, data, length) for every piece of the stream ...
 *   Dexo_Stop(port); Dexo_CloseStream(port); Dexo_FreePort(port);
 *
 * Results: every call returns DEXO_TRUE (1) on success and DEXO_FALSE (0) on
 * failure; Dexo_GetLastError(port) then tells why (DEXO_ERR_*). The last
 * error is kept per port (not per thread).
 *
 * Threads: every call may be made from any thread; calls on one port are
 * serialised inside. Dexo_Play and Dexo_WndResolutionChange touch the
 * window only through the X server (their own display connection), so they
 * need not run on the GUI thread, but the window must exist while the port
 * plays: stop the port before the window is destroyed. The run-time info
 * callback arrives on a player thread (the decoder's streaming thread or
 * the port's bus thread, or the thread inside Dexo_InputData when that
 * call finds the damage), never held up by the caller's event loop; it must
 * not block and may call no Dexo_ function on its own port but
 * Dexo_GetLastError (CManageAll::requestShareKeyFrame is fine: it only posts).
 *
 * Data: Dexo_InputData takes the stream as a byte stream: each piece may hold
 * any number of whole or partial packets (see DexoPacketHeader), so the
 * pieces of CManageAll's stream callback are passed on as they come.
 */
#ifndef ZELVANOR_CASTING_DEXO_H
#define ZELVANOR_CASTING_DEXO_H

#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define DEXO_API __attribute__((visibility("default")))
#else
#define DEXO_API
#endif

typedef int DEXO_BOOL;
#define DEXO_TRUE 1
#define DEXO_FALSE 0

/* Ports: at most this many open at once; numbers are 0 .. DEXO_MAX_PORTS-1. */
#define DEXO_MAX_PORTS 16

/* Dexo_SetStreamOpenMode. */
#define DEXO_STREAM_REALTIME 0 /* live: late pictures are dropped, no clock waits */
#define DEXO_STREAM_FILE 1     /* paced by the time stamps */

/* Run-time info: modules and event bits (Dexo_SetRunTimeInfoCallbackType). */
#define DEXO_MODULE_DECODER 2
#define DEXO_INFO_DECODE_ERROR 0x40u /* the decoder rejected data: ask for a key frame */
#define DEXO_INFO_STREAM_ERROR 0x80u /* malformed packets, sink or pipeline failures */

/* Errors (Dexo_GetLastError). */
#define DEXO_ERR_NONE 0u
#define DEXO_ERR_PARAMETER 1u      /* a null pointer, a size too small, a bad value */
#define DEXO_ERR_PORT 2u           /* no such port, or all ports in use */
#define DEXO_ERR_ORDER 3u          /* call out of order (e.g. Play before OpenStream) */
#define DEXO_ERR_HEADER 4u         /* not a "ZDXF" header, or formats this player lacks */
#define DEXO_ERR_BUFFER_FULL 5u    /* the stream buffer is full: the data was dropped */
#define DEXO_ERR_STREAM 6u         /* malformed packet: the buffered partial packet was dropped */
#define DEXO_ERR_DECODE 7u         /* the decoder failed */
#define DEXO_ERR_DISPLAY 8u        /* no usable video sink, or the window is gone */
#define DEXO_ERR_NO_PICTURE 9u     /* nothing shown yet (Dexo_GetJPEG) */
#define DEXO_ERR_ENCODE 10u        /* the JPEG could not be made */
#define DEXO_ERR_SOUND 11u         /* no sound output */
#define DEXO_ERR_UNAVAILABLE 12u   /* not built in this library */

/* The 40-byte stream header handed to Dexo_OpenStream; little endian.
 *   0  4  "ZDXF"          magic
 *   4  4  0               reserved
 *   8  2  4               system format: DEXO_SYSTEM_PACKETS
 *   10 2  0x0100          video format: H.264 (Annex B)
 *   12 2  0x2001          audio format: Opus
 *   14 1  2               audio channels
 *   15 1  16              bits per sample
 *   16 4  48000           audio sample rate
 *   20 4  64000           audio bit rate
 *   24 16 0               reserved */
#define DEXO_HEADER_SIZE 40
#define DEXO_HEADER_MAGIC "ZDXF"
#define DEXO_SYSTEM_PACKETS 4
#define DEXO_VIDEO_H264 0x0100
#define DEXO_AUDIO_OPUS 0x2001

typedef struct DexoStreamHeader {
    char magic[4];
    uint32_t reserved0;
    uint16_t systemFormat;
    uint16_t videoFormat;
    uint16_t audioFormat;
    uint8_t audioChannels;
    uint8_t bitsPerSample;
    uint32_t sampleRate;
    uint32_t audioBitrate;
    uint8_t reserved1[16];
} DexoStreamHeader;

/* Writes the header above into out[DEXO_HEADER_SIZE]. */
static inline void DexoHeader_Default(unsigned char* out)
{
    unsigned i;
    memset(out, 0, DEXO_HEADER_SIZE);
    memcpy(out, DEXO_HEADER_MAGIC, 4);
    out[8] = DEXO_SYSTEM_PACKETS;
    out[10] = DEXO_VIDEO_H264 & 0xff;
    out[11] = DEXO_VIDEO_H264 >> 8;
    out[12] = DEXO_AUDIO_OPUS & 0xff;
    out[13] = DEXO_AUDIO_OPUS >> 8;
    out[14] = 2;
    out[15] = 16;
    for (i = 0; i < 4; ++i) {
        out[16 + i] = (unsigned char)((48000u >> (8 * i)) & 0xff);
        out[20 + i] = (unsigned char)((64000u >> (8 * i)) & 0xff);
    }
}

/* Reads a header; DEXO_FALSE when the size or the magic is wrong. */
static inline DEXO_BOOL DexoHeader_Parse(const unsigned char* in, unsigned int size, DexoStreamHeader* out)
{
    if (!in || !out || size < DEXO_HEADER_SIZE || memcmp(in, DEXO_HEADER_MAGIC, 4) != 0)
        return DEXO_FALSE;
    memset(out, 0, sizeof *out);
    memcpy(out->magic, in, 4);
    out->reserved0 = (uint32_t)in[4] | ((uint32_t)in[5] << 8) | ((uint32_t)in[6] << 16) | ((uint32_t)in[7] << 24);
    out->systemFormat = (uint16_t)(in[8] | (in[9] << 8));
    out->videoFormat = (uint16_t)(in[10] | (in[11] << 8));
    out->audioFormat = (uint16_t)(in[12] | (in[13] << 8));
    out->audioChannels = in[14];
    out->bitsPerSample = in[15];
    out->sampleRate = (uint32_t)in[16] | ((uint32_t)in[17] << 8) | ((uint32_t)in[18] << 16) | ((uint32_t)in[19] << 24);
    out->audioBitrate = (uint32_t)in[20] | ((uint32_t)in[21] << 8) | ((uint32_t)in[22] << 16) | ((uint32_t)in[23] << 24);
    memcpy(out->reserved1, in + 24, 16);
    return DEXO_TRUE;
}

/* The stream after the header (system format 4): packets, each a 24-byte
 * packet header, little endian, followed by its payload:
 *   0  4  "ZDPK"        magic
 *   4  1  kind          1 video (one H.264 access unit, Annex B), 2 audio (one Opus packet)
 *   5  1  flags         bit 0 key frame (IDR with SPS/PPS), bit 1 discontinuity (data were lost before)
 *   6  2  0             reserved
 *   8  4  length        payload bytes, at most DEXO_MAX_PAYLOAD
 *   12 4  0             reserved
 *   16 8  pts           presentation time in microseconds on the panel's clock
 * CManageAll's stream callback hands over whole packets, one per call,
 * with its type argument = the packet's kind. */
#define DEXO_PACKET_HEADER_SIZE 24
#define DEXO_PACKET_MAGIC "ZDPK"
#define DEXO_KIND_VIDEO 1
#define DEXO_KIND_AUDIO 2
#define DEXO_FLAG_KEY 0x01
#define DEXO_FLAG_DISCONTINUITY 0x02
#define DEXO_MAX_PAYLOAD (8u * 1024u * 1024u)

/* Run-time information; the fifth field is the error (0 = none). */
typedef struct RunTimeInfo {
    int nModule;     /* DEXO_MODULE_DECODER */
    int nType;       /* the DEXO_INFO_* bit that fired */
    int nFrameNum;   /* pictures decoded so far on this port */
    int nTimeStamp;  /* milliseconds since the port opened its stream */
    int nErrorCode;  /* DEXO_ERR_DECODE, DEXO_ERR_STREAM, DEXO_ERR_DISPLAY ...; 0 for none */
    int nReserved[3];
} RunTimeInfo;

typedef void (*DexoRunTimeInfoCallback)(int port, RunTimeInfo* info, void* user);

/* A free port into *port (on failure *port is left unchanged). */
DEXO_API DEXO_BOOL Dexo_GetPort(int* port);
/* Gives the port back; stops and closes whatever is still open on it. */
DEXO_API DEXO_BOOL Dexo_FreePort(int port);
/* The reason of the last failed call on this port (DEXO_ERR_*); for a bad
 * port number, the last error of Dexo_GetPort/ports in general. */
DEXO_API unsigned int Dexo_GetLastError(int port);

/* Run-time info: callback for a module (only DEXO_MODULE_DECODER), and
 * which events reach it (mask of DEXO_INFO_*; enable 1 adds, 0 removes).
 * The callback runs on a player thread. */
DEXO_API DEXO_BOOL Dexo_SetRunTimeInfoCallBackEx(int port, int module, DexoRunTimeInfoCallback callback, void* user);
DEXO_API DEXO_BOOL Dexo_SetRunTimeInfoCallbackType(int port, int module, unsigned int typeMask, int enable);

/* DEXO_STREAM_REALTIME or DEXO_STREAM_FILE; before Dexo_OpenStream. */
DEXO_API DEXO_BOOL Dexo_SetStreamOpenMode(int port, int mode);
/* Opens the stream: header (DEXO_HEADER_SIZE bytes, "ZDXF"), and the most
 * bytes Dexo_InputData may hold before it refuses data (at least 64 KiB). */
DEXO_API DEXO_BOOL Dexo_OpenStream(int port, const unsigned char* header, unsigned int headerSize,
                                   unsigned int bufferSize);
DEXO_API DEXO_BOOL Dexo_CloseStream(int port);
/* Decoded pictures queued before drawing: 1..50; any larger value (all bits
 * set) means the fewest the sink works with (real-time). After OpenStream. */
DEXO_API DEXO_BOOL Dexo_SetDisplayBuf(int port, unsigned int count);
/* 1: video waits for the sound clock; 0: each stream is shown on arrival. */
DEXO_API DEXO_BOOL Dexo_SyncToAudio(int port, int sync);
/* Sound on / off (the audio packets are decoded and played, or dropped).
 * Fails with DEXO_ERR_SOUND when no sound output exists; video goes on. */
DEXO_API DEXO_BOOL Dexo_PlaySound(int port);
DEXO_API DEXO_BOOL Dexo_StopSound(int port);
/* Error concealment: 1 shows pictures the decoder repaired; 0 drops damaged
 * pictures until the next key frame. */
DEXO_API DEXO_BOOL Dexo_SetDecodeERC(int port, unsigned int level);

/* Starts decoding and drawing into the X11 window `window` (a QWidget's
 * winId()); the picture is scaled into the window with its aspect kept.
 * window 0: decode only (no drawing; Dexo_GetJPEG still works). */
DEXO_API DEXO_BOOL Dexo_Play(int port, unsigned long window);
DEXO_API DEXO_BOOL Dexo_Stop(int port);
/* Stream bytes, any split (see the packet layout above). Fails with
 * DEXO_ERR_BUFFER_FULL (data dropped) or DEXO_ERR_STREAM (malformed packet,
 * the partial packet dropped and the stream resynchronised on the next
 * "ZDPK"); either way the caller should ask for a key frame. */
DEXO_API DEXO_BOOL Dexo_InputData(int port, const void* data, unsigned int length);
/* The window was resized or moved: redraw at the new size. */
DEXO_API DEXO_BOOL Dexo_WndResolutionChange(int port);
/* A JPEG of the picture shown last (full stream resolution) into buffer;
 * *pictureSize = its bytes. Fails with DEXO_ERR_NO_PICTURE before the first
 * picture and DEXO_ERR_PARAMETER when bufferSize is too small. */
DEXO_API DEXO_BOOL Dexo_GetJPEG(int port, unsigned char* buffer, unsigned int bufferSize, unsigned int* pictureSize);
/* Size of the decoded pictures (0 x 0 before the first). */
DEXO_API DEXO_BOOL Dexo_GetPictureSize(int port, int* width, int* height);

#ifdef __cplusplus
}
#endif

#endif /* ZELVANOR_CASTING_DEXO_H */
