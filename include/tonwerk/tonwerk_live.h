// SPDX-License-Identifier: MIT
/**
 * \file tonwerk_live.h
 * Stem separation in an audio callback: every call gives n frames and gets n frames of every stem, a constant
 * time later.
 *
 * \code
 * #include <stdio.h>
 * #include <tonwerk/tonwerk_live.h>
 *
 * static tonwerk_live* live;
 *
 * // On the audio thread, for each block: from two channels to sixteen.
 * void audioCallback(const float* const in[2], float* const out[TONWERK_CHANNEL_COUNT], size_t frames)
 * {
 *     tonwerk_live_process_planar(live, in[0], in[1], out, frames);
 * }
 *
 * // Before the audio starts. The host delays its other signals by what is returned; 0: it failed.
 * uint64_t prepare(tonwerk_context* context, uint32_t framesPerCallback)
 * {
 *     tonwerk_live_options options = TONWERK_LIVE_OPTIONS_INIT;
 *     options.block = framesPerCallback;
 *     if (tonwerk_live_open(context, &options, &live) != TONWERK_OK)
 *         fprintf(stderr, "%s\n", tonwerk_last_error());
 *     return tonwerk_live_latency(live);
 * }
 * \endcode
 *
 * What it does
 *     A worker thread of the live object's own runs the model; the audio thread only copies. Give it a
 * context with a model for small steps, such as tonwerk-live.onnx, and let the model be the only one that is
 * run on that context, or its runs take turns with those of the other streams.
 *
 * Latency
 *     Constant, known before the first sample, and the sum of three: what a stream of the same step,
 * lookahead and blend needs (tonwerk_stream_latency), the time allowed for a run of the model (`run_frames`),
 * and the longest block that was announced (`block`).
 *
 * What comes late
 *     If the model has not finished in time, the frames that are missing are silent, and counted. What comes
 * too late is dropped, so that the next frames are in their place again: the delay never changes. With
 *     TONWERK_LIVE_DRY the residual has the input where frames are missing, delayed like everything else, so
 *     that the sum of residual and stems goes on sounding. A worker that falls behind by more than twice the
 *     latency drops what waits and begins anew with the sound at hand.
 *
 * Blocks
 *     Any number of frames per call, also 0, and another one each time. Blocks longer than announced are
 * taken; what they exceed it by is lost to the time that a run may take. Output buffers may be the input
 * buffers. Samples that are no finite numbers are taken as 0.
 *
 * Threads
 *     Each function says in brackets who may call it, and when:
 *     [any-thread]    any thread at any time, also while other calls are under way; not for audio callbacks
 *     [audio-thread]  any thread, but one call of these for the same object at a time. Wait-free: takes no
 * lock, allocates nothing and asks nothing of the system, so it may be called in an audio callback
 */
#ifndef TONWERK_TONWERK_LIVE_H
#define TONWERK_TONWERK_LIVE_H

#include <tonwerk/tonwerk_c.h>

/** A live separation: the part of an audio callback, and its worker. */
typedef struct tonwerk_live tonwerk_live;

/** Flags of tonwerk_live_options. */
enum
{
    /** Where frames are missing the residual has the input instead of silence. */
    TONWERK_LIVE_DRY = 1
};

/** What a live object is asked to do. Begin with TONWERK_LIVE_OPTIONS_INIT. */
typedef struct tonwerk_live_options
{
    /** sizeof(tonwerk_live_options). Bytes beyond those that the library knows must be 0. */
    uint32_t size;
    /** 0 or TONWERK_LIVE_DRY. */
    uint32_t flags;
    /** The most frames that a call will have, at most 65,536; 0: 1,024. */
    uint32_t block;
    /** The time in frames that a run of the model may take, with all that delays the worker; at most
     *  16,777,216; 0: one step, which is what a worker needs that just keeps up. */
    uint32_t run_frames;
    /** Stems, step, lookahead and blend; read during the call only. If null, all stems in the preset "live";
     * if its three numbers are 0, that preset. */
    const tonwerk_stream_options* stream;
} tonwerk_live_options;

#define TONWERK_LIVE_OPTIONS_INIT                                                                            \
    {                                                                                                        \
        sizeof(tonwerk_live_options), 0, 0, 0, NULL                                                          \
    }

/** How a live object goes. The counts begin with the object and are not cleared by a reset. */
typedef struct tonwerk_live_info
{
    /** sizeof(tonwerk_live_info), set by the caller; what the library does not know becomes 0. */
    uint32_t size;
    /** As in the options, with their 0 resolved. */
    uint32_t block;
    /** What tonwerk_live_latency returns. */
    uint64_t latency;
    /** Calls in which frames were missing. */
    uint64_t underruns;
    /** Frames that were missing. */
    uint64_t late_frames;
    /** How often the worker was so far behind that it began anew. */
    uint64_t restarts;
    /** Runs of the model, those that failed included; without those that a reset has ended. */
    uint64_t runs;
    /** Runs that failed: their stems are silent. */
    uint64_t failed_runs;
    /** Runs that a reset, or falling behind, has ended. */
    uint64_t cancelled_runs;
    /** How long the last and the longest run took, without the wait for other streams' runs. */
    double last_run_seconds;
    double worst_run_seconds;
    /** The share of its time that the worker needs, all included, over some of the last runs: it keeps up as
     *  long as this is below 1. */
    double load;
} tonwerk_live_info;

/**
 * Makes a live object, which keeps the model alive, and starts its worker.
 * [any-thread]
 * \param options null: as TONWERK_LIVE_OPTIONS_INIT
 * \param live receives the handle, or null if the call fails
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT, TONWERK_OUT_OF_MEMORY, TONWERK_STREAM_FAILED
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_live_open(tonwerk_context* context,
                                                               const tonwerk_live_options* options,
                                                               tonwerk_live** live);

/** Ends the worker, also in the middle of a run, and waits for that. Null is allowed.
 *  [any-thread, no other call for this object under way or to come] */
TONWERK_C_API void tonwerk_live_destroy(tonwerk_live* live);

/**
 * Gives a block and gets as many frames of each stem, those that were given tonwerk_live_latency frames ago:
 * before these there is silence.
 * [audio-thread]
 * \param interleaved 2 * frames samples; null: silence
 * \param stems one buffer of 2 * frames samples for each stem, which receives interleaved samples; a null
 *        pointer in the array passes that stem over. Stems that were not chosen are silent
 * \return how many frames of this block were missing: 0 if all is well, also for null
 */
TONWERK_C_API size_t tonwerk_live_process(tonwerk_live* live, const float* interleaved,
                                          float* const stems[TONWERK_STEM_COUNT], size_t frames);

/** The same for buffers of `frames` samples per channel: that of a stem's left channel is at the place 2 *
 * stem, that of its right one behind it. [audio-thread] */
TONWERK_C_API size_t tonwerk_live_process_planar(tonwerk_live* live, const float* left, const float* right,
                                                 float* const channels[TONWERK_CHANNEL_COUNT], size_t frames);

/**
 * Begins a new stream, for a seek or a stop: at once nothing of the former one is heard any more, and its run
 * is ended. The next block that is given begins at `position`, and comes out after the latency, during which
 * there is silence. Null is allowed. [audio-thread]
 * \param position in frames, as the host counts: only tonwerk_live_position uses it
 */
TONWERK_C_API void tonwerk_live_reset(tonwerk_live* live, int64_t position);

/** The host's position of the next frame that comes out; the first stream begins at 0, so it starts with
 * minus the latency. 0 for null. [audio-thread] */
TONWERK_C_API int64_t tonwerk_live_position(const tonwerk_live* live);

/** From now on a call waits for what would be missing, if `offline` is not 0: for hosts that compute a file
 * faster than it sounds. Such calls are not wait-free, and no frames are missing but for runs that fail. Null
 * is allowed. [audio-thread] */
TONWERK_C_API void tonwerk_live_set_offline(tonwerk_live* live, int offline);

/** Frames from what is given to what comes out, the same for the whole life of the object. 0 for null.
 *  [any-thread; audio-thread] */
TONWERK_C_API uint64_t tonwerk_live_latency(const tonwerk_live* live);

/**
 * Tells how it goes.
 * [any-thread]
 * \param info with its size; receives the rest
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_live_get_info(const tonwerk_live* live,
                                                                   tonwerk_live_info* info);

#endif /* TONWERK_TONWERK_LIVE_H */
