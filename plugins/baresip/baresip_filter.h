// baresip_filter.h - what an audio filter needs of the interface of baresip 1.0 to its modules.
//
// Debian ships no headers for baresip's modules, only those of the two libraries beneath it, libre and
// librem. So the records stand here as the program of version 1.0 reads and writes them.
#ifndef BARESIP_FILTER_H
#define BARESIP_FILTER_H

#include <re.h>
#include <rem.h>

extern "C" {

struct audio;  // the audio of a call
struct aufilt;

// A stretch of interleaved sound on its way, changed in place.
struct auframe {
    enum aufmt fmt;
    void* sampv;
    size_t sampc;  // samples of all channels together; 0 for a packet that was lost
    uint64_t timestamp;
};

// What the filter has been told of a call's sound in one direction.
struct aufilt_prm {
    uint32_t srate;  // Hz, the codec's
    uint8_t ch;
    enum aufmt fmt;
};

// The head of a filter's state. The program writes to it when the update handler has returned 0, so that
// there must be a state then, and releases it with mem_deref when the call ends.
struct aufilt_enc_st {
    const struct aufilt* af;
    struct le le;
};
struct aufilt_dec_st {
    const struct aufilt* af;
    struct le le;
};

// ctx is a place that both directions of a call share. When an update handler fails, the filters behind it in
// the list are left out of the call too.
typedef int(aufilt_encupd_h)(struct aufilt_enc_st** stp, void** ctx, const struct aufilt* af,
                             struct aufilt_prm* prm, const struct audio* au);
typedef int(aufilt_encode_h)(struct aufilt_enc_st* st, struct auframe* frame);
typedef int(aufilt_decupd_h)(struct aufilt_dec_st** stp, void** ctx, const struct aufilt* af,
                             struct aufilt_prm* prm, const struct audio* au);
typedef int(aufilt_decode_h)(struct aufilt_dec_st* st, struct auframe* frame);

// Without an update handler a filter stays out of that direction.
struct aufilt {
    struct le le;
    const char* name;
    aufilt_encupd_h* encupdh;
    aufilt_encode_h* ench;
    aufilt_decupd_h* decupdh;
    aufilt_decode_h* dech;
};

struct list* baresip_aufiltl(void);
void aufilt_register(struct list* filters, struct aufilt* filter);
void aufilt_unregister(struct aufilt* filter);

struct conf* conf_cur(void);
void info(const char* format, ...);  // with the formats of re_fmt.h
void warning(const char* format, ...);

// Null in a program that has no such function.
__attribute__((weak)) void auframe_init(struct auframe* frame, enum aufmt fmt, void* sampv, size_t sampc);

}  // extern "C"

// Whether the program that has loaded us fills in frames as they stand here. A version of another layout
// would have us read and write in the wrong places.
bool frames_are_known();

#endif
