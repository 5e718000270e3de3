/* gmm_vad.h - voice-activity detector: is this frame speech?
 *
 * Input is 16-bit mono PCM at 8000, 16000, 32000 or 48000 Hz in frames of 10, 20 or 30 ms. The detector
 * compares the likelihood of a speech and a noise model of the frame's log energy in six bands below 4 kHz
 * (a likelihood-ratio test as in Sohn, Kim, Sung, "A statistical model-based voice activity detection",
 * IEEE Signal Processing Letters 6(1), 1999) and adapts the model of the one it decides for to every frame
 * that is not silent; the noise model follows the smallest of recent energies besides.
 *
 * Modes 0 to 3 ask for increasingly strong evidence: 0 misses least speech, 3 lets least noise through.
 *
 * Ownership: TarvikGmmVad_Create allocates, TarvikGmmVad_Free releases; no other call allocates, save
 * TarvikGmmVad_api_Init, which TarvikGmmVad_api_deinit undoes.
 * Threads: one instance or wrapper is for one thread at a time; instances share nothing.
 *
 *     VadInstT* vad = TarvikGmmVad_Create();
 *     TarvikGmmVad_Init(vad);
 *     TarvikGmmVad_set_mode(vad, 2);
 *     int32_t speech = TarvikGmmVad_Process(vad, 16000, frame, 160);
 *     TarvikGmmVad_Free(vad);
 */
#ifndef GMM_VAD_H
#define GMM_VAD_H

#include "vad_instance.h"

/* Allocates an instance, not yet initialised. Null if there is no memory. */
VQNS_API VadInstT* TarvikGmmVad_Create(void);

/* Releases an instance; null is allowed. */
VQNS_API void TarvikGmmVad_Free(void* instance);

/* Sets the models to their initial state and mode 0; may be repeated. 0, or -1 for a null instance. */
VQNS_API int32_t TarvikGmmVad_Init(VadInstT* instance);

/* Selects a mode from 0 to 3. 0, or -1 for a null or uninitialised instance or another mode; the instance is
 * then unchanged. */
VQNS_API int32_t TarvikGmmVad_set_mode(VadInstT* instance, int32_t mode);

/* 0 if frames of `frame_length` samples at `rate` Hz can be processed, else -1. */
VQNS_API int32_t TarvikGmmVad_ValidRateAndFrameLength(int32_t rate, size_t frame_length);

/* Classifies one frame: 1 speech, 0 noise. -1, with the instance unchanged, for a null or uninitialised
 * instance, a null frame, or a rate and length that TarvikGmmVad_ValidRateAndFrameLength refuses. The rate of
 * one instance should not change between frames. At 48000 Hz a frame of 20 or 30 ms is judged by its first
 * 10 ms. */
VQNS_API int32_t TarvikGmmVad_Process(VadInstT* instance, int32_t rate, const int16_t* frame,
                                      size_t frame_length);

/* The wrapper: a detector whose decisions set in late and linger, and which prints its failures. */
typedef struct TarvikGmmVad_api_t {
    VadInstT* instance;      /* owned; null before api_Init, after its failure and after api_deinit */
    int32_t mode;            /* 0 to 3 */
    int32_t rate;            /* Hz, handed to every TarvikGmmVad_Process */
    int32_t hangover_frames; /* frames reported as speech after raw speech has ended */
    int32_t onset_frames;    /* raw speech frames that pass before speech is reported */
    int32_t hangover_count;  /* frames of hangover since speech was last reported, at most hangover_frames */
    int32_t onset_count;     /* raw speech frames that have passed, at most onset_frames */
    int32_t speech_seen;     /* 1 once any raw speech frame has been seen */
} TarvikGmmVad_api_t;

/* Sets up a wrapper in the caller's zeroed storage. `config` is four words: mode, rate, hangover_frames,
 * onset_frames; the words of the wrapper itself will do. 0, or -1 with a line on standard output saying which
 * step failed (none when memory is short); nothing is then held. The rate is checked frame by frame, not
 * here. A wrapper in use must go through TarvikGmmVad_api_deinit before it is set up again, or its instance
 * is lost. */
VQNS_API int32_t TarvikGmmVad_api_Init(TarvikGmmVad_api_t* wrapper, const int32_t* config);

/* Classifies one frame at the wrapper's rate: 1 speech, 0 noise. -1 with a line on standard output when
 * TarvikGmmVad_Process refuses it. With no onset and no hangover frames, the raw decision. */
VQNS_API int32_t TarvikGmmVad_api_Process(TarvikGmmVad_api_t* wrapper, const int16_t* frame,
                                          size_t frame_length);

/* Releases the instance; the wrapper's storage stays the caller's. May be repeated. */
VQNS_API void TarvikGmmVad_api_deinit(TarvikGmmVad_api_t* wrapper);

#endif
