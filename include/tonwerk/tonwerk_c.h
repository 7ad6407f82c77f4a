// SPDX-License-Identifier: MIT
/**
 * \file tonwerk_c.h
 * tonwerk for every compiler and language: a flat C interface to streaming stem separation.
 *
 * \code
 * #include <stdio.h>
 * #include <tonwerk/tonwerk_c.h>
 *
 * // Supplied by the host: the next block of the song (0 frames at its end), and what becomes of its stems.
 * size_t nextBlock(float* block, size_t capacity);
 * void use(float* const stems[TONWERK_STEM_COUNT], size_t frames);
 *
 * enum { blockFrames = 441 }; // any number will do
 *
 * static tonwerk_status readAll(tonwerk_stream* stream)
 * {
 *     static float buffers[TONWERK_STEM_COUNT][2 * blockFrames];
 *     float* stems[TONWERK_STEM_COUNT];
 *     size_t count = 0;
 *     for (int i = 0; i < TONWERK_STEM_COUNT; ++i)
 *         stems[i] = buffers[i];
 *     do
 *     {
 *         const tonwerk_status status = tonwerk_stream_read(stream, stems, blockFrames, &count);
 *         if (status != TONWERK_OK)
 *             return status;
 *         use(stems, count);
 *     } while (count > 0);
 *     return TONWERK_OK;
 * }
 *
 * int separate(const void* model, size_t modelSize)
 * {
 *     tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
 *     tonwerk_context* context = NULL;
 *     tonwerk_stream* stream = NULL;
 *     float block[2 * blockFrames];
 *     size_t frames = 0;
 *     tonwerk_status status = tonwerk_preset("smooth", &options);
 *     if (status == TONWERK_OK)
 *         status = tonwerk_context_open(model, modelSize, NULL, &context);
 *     if (status == TONWERK_OK)
 *         status = tonwerk_stream_open(context, &options, &stream);
 *     while (status == TONWERK_OK && (frames = nextBlock(block, blockFrames)) > 0)
 *     {
 *         status = tonwerk_stream_push(stream, block, frames);
 *         if (status == TONWERK_OK)
 *             status = readAll(stream);
 *     }
 *     if (status == TONWERK_OK)
 *         status = tonwerk_stream_flush(stream);
 *     if (status == TONWERK_OK)
 *         status = readAll(stream);
 *     if (status != TONWERK_OK)
 *         fprintf(stderr, "%s\n", tonwerk_last_error());
 *     tonwerk_stream_destroy(stream);
 *     tonwerk_context_destroy(context);
 *     return status == TONWERK_OK ? 0 : 1;
 * }
 * \endcode
 *
 * Sound
 *     Stereo samples, 32-bit float. Interleaved: left, right, left, right ...; planar: a buffer per channel.
 * A frame is one sample of each channel. The library does not resample: give the model the sample rate that
 *     it was made for (tonwerk_context_get_info).
 *
 * Why push and read are two calls
 *     Stems are completed a run of the model at a time, up to some 255,000 frames. Had one call to return
 *     what it completes, every host would need buffers of that size and a queue behind them. Here the stream
 *     keeps the queue: a host pushes blocks as they come and reads as many frames as it wants, for instance
 *     one block for each block, into buffers of its own. The stems are the same, bit for bit, for every way
 *     to cut the input.
 *
 * Latency, smoothness and work
 *     Three numbers of a stream, in steps of 1,024 frames, say how often the model runs and which part of
 *     its answer is used (tonwerk_stream_options). tonwerk_preset has good ones by name. After n frames have
 *     been pushed, at least n - tonwerk_stream_latency() have become available. A push that completes a step
 *     takes as long as a run of the model, every other one only copies: tonwerk_stream_frames_until_result
 *     says which one will. Frames that are available and not read stay in memory, 64 bytes each, without a
 *     limit: read after each push.
 *
 * Failures
 *     Every function that can fail returns a status and never throws, and leaves a sentence for the calling
 *     thread in tonwerk_last_error(). A model run that fails while streaming does not end the stream: the six
 *     stems are silent where only that run decided about them, the log has the reason, and the count of
 *     failed runs in tonwerk_stream_info tells the host.
 *
 * Memory across the border
 *     The caller owns every buffer and the library owns every handle; nothing that one side allocates is
 *     freed by the other. No pointer is kept after a call, but for a log callback and its user pointer. Texts
 *     that are returned are the library's.
 *
 * Threads
 *     Each function says in brackets who may call it, and when:
 *     [any-thread]     any thread at any time, also while other calls are under way
 *     [stream-thread]  any thread, but one call for the same stream at a time. Calls for different streams
 *                      are independent, also on one context: only its model is run for one of them at a time
 *     None of them is for an audio callback that must not wait. The library starts no thread of its own; the
 *     inference runtime has workers, whose number, pinning and spinning tonwerk_context_options decides.
 *
 * Growth
 *     A record begins with its size, by which the library knows the fields that the caller knows. Records may
 *     grow at their end, enumerations and the list of functions likewise; nothing else changes while
 *     TONWERK_C_VERSION_MAJOR stays.
 */
#ifndef TONWERK_TONWERK_C_H
#define TONWERK_TONWERK_C_H

#include <stddef.h>
#include <stdint.h>

#if defined(__cplusplus)
#define TONWERK_C_LINKAGE extern "C"
#else
#define TONWERK_C_LINKAGE extern
#endif
#if defined(_WIN32) && defined(TONWERK_BUILDING_C_LIBRARY)
#define TONWERK_C_API TONWERK_C_LINKAGE __declspec(dllexport)
#elif defined(_WIN32)
#define TONWERK_C_API TONWERK_C_LINKAGE __declspec(dllimport)
#else
#define TONWERK_C_API TONWERK_C_LINKAGE __attribute__((visibility("default")))
#endif

/** Marks a function whose result must be looked at. */
#if defined(__GNUC__) || defined(__clang__)
#define TONWERK_CHECKED __attribute__((warn_unused_result))
#elif defined(_MSC_VER)
#include <sal.h>
#define TONWERK_CHECKED _Check_return_
#else
#define TONWERK_CHECKED
#endif

/** Version of this interface. A program runs with every library of the same major and the same or a later
 *  minor version. */
#define TONWERK_C_VERSION_MAJOR 1
#define TONWERK_C_VERSION_MINOR 0
/** As one number that can be compared, as tonwerk_c_version() returns it. */
#define TONWERK_C_VERSION ((TONWERK_C_VERSION_MAJOR << 16) | TONWERK_C_VERSION_MINOR)

/** A loaded model. */
typedef struct tonwerk_context tonwerk_context;

/** One audio stream on its way through a model. */
typedef struct tonwerk_stream tonwerk_stream;

/** What a function says of its success: one of the values below. Later versions may add some. */
typedef int32_t tonwerk_status;

enum
{
    TONWERK_OK = 0,
    /** A null pointer, a size that cannot be, a stem that does not exist. Nothing has changed. */
    TONWERK_INVALID_ARGUMENT = 1,
    TONWERK_OUT_OF_MEMORY = 2,
    /** The bytes are no model, or one whose inputs and outputs are not as they must be, or the inference
     *  runtime cannot be loaded. */
    TONWERK_MODEL_REFUSED = 3,
    /** A push or flush after a flush: reset the stream. What is available can still be read. */
    TONWERK_STREAM_ENDED = 4,
    /** The stream broke down, now or before: reset it. What is available can still be read. */
    TONWERK_STREAM_FAILED = 5,
    /** The stream was cancelled, now or before: reset it. What is available can still be read. */
    TONWERK_CANCELLED = 6,
    /** The one execution provider that was asked for cannot be had. */
    TONWERK_PROVIDER_REFUSED = 7
};

/** Places of the stems in the array that tonwerk_stream_read fills. */
enum
{
    TONWERK_VOCALS = 0,
    TONWERK_DRUM = 1,
    TONWERK_PIANO = 2,
    TONWERK_ACOUSTIC_GUITAR = 3,
    TONWERK_ELECTRIC_GUITAR = 4,
    TONWERK_BASS = 5,
    /** The input minus the six. */
    TONWERK_RESIDUAL = 6,
    /** The sum of the six. */
    TONWERK_MIX = 7,
    TONWERK_STEM_COUNT = 8
};

/** Channels of all stems: the length of the array that tonwerk_stream_read_planar fills. */
#define TONWERK_CHANNEL_COUNT (2 * TONWERK_STEM_COUNT)

/** The bits of all stems that can be asked of a model. */
#define TONWERK_ALL_STEMS 0x3Fu

/** What runs the model: one of the values below. */
typedef int32_t tonwerk_provider;

enum
{
    /** The last of DirectML, CUDA and ROCm that takes the model, otherwise the processor. */
    TONWERK_PROVIDER_AUTOMATIC = 0,
    TONWERK_PROVIDER_CPU = 1,
    TONWERK_PROVIDER_DIRECTML = 2,
    TONWERK_PROVIDER_CUDA = 3,
    TONWERK_PROVIDER_ROCM = 4
};

/** How much is logged, and how serious a line is. Every level has the lines of those before it. */
enum
{
    TONWERK_LOG_DEFAULT = 0, /**< as TONWERK_LOG_WARNING */
    TONWERK_LOG_NONE = 1,
    TONWERK_LOG_ERROR = 2,
    TONWERK_LOG_WARNING = 3,
    TONWERK_LOG_INFO = 4,
    TONWERK_LOG_DEBUG = 5
};

/**
 * Takes a line of the log, without a line break, UTF-8, valid during the call only. Called from the thread
 * that made the call which has something to say, and from threads of the inference runtime; it must not call
 * this library, nor throw.
 * \param user  what the options say
 * \param level TONWERK_LOG_ERROR to TONWERK_LOG_DEBUG
 */
typedef void (*tonwerk_log_callback)(void* user, int32_t level, const char* text);

/** Flags of tonwerk_context_options. */
enum
{
    /** Binds each of the runtime's threads to a processor. Not for hosts with several contexts: their threads
     *  would share processors. */
    TONWERK_PIN_THREADS = 1,
    /** Lets the runtime's threads wait for work in a loop: a little faster, and a processor each is busy. */
    TONWERK_SPIN_THREADS = 2
};

/** How a model is loaded and run. Begin with TONWERK_CONTEXT_OPTIONS_INIT. */
typedef struct tonwerk_context_options
{
    /** sizeof(tonwerk_context_options). Bytes beyond those that the library knows must be 0. */
    uint32_t size;
    /** A sum of TONWERK_PIN_THREADS and TONWERK_SPIN_THREADS. */
    uint32_t flags;
    /** Threads that compute a run, the calling one among them. 1: no other one; 0: one for each processor. At
     *  most 1,024. */
    uint32_t threads;
    /** What runs the model. One that is asked for by name is used or refused. */
    tonwerk_provider provider;
    /** The least serious lines that are logged. */
    int32_t log_level;
    /** 0. */
    uint32_t reserved;
    /** Receives the log's lines, and then nothing is printed. Must be valid until the context and all its
     *  streams are destroyed. Null: text lines on standard output. */
    tonwerk_log_callback log;
    void* log_user;
    /** The scrambling key: byte i of the model is XORed with byte (i modulo key_size) of it. Null if key_size
     *  is 0, and then the model is plain. */
    const void* key;
    size_t key_size;
} tonwerk_context_options;

#define TONWERK_CONTEXT_OPTIONS_INIT                                                                         \
    {                                                                                                        \
        sizeof(tonwerk_context_options), 0, 0, TONWERK_PROVIDER_AUTOMATIC, TONWERK_LOG_DEFAULT, 0, NULL,     \
            NULL, NULL, 0                                                                                    \
    }

/** What is known of a context. */
typedef struct tonwerk_context_info
{
    /** sizeof(tonwerk_context_info), set by the caller; what the library does not know becomes 0. */
    uint32_t size;
    /** What runs the model, never TONWERK_PROVIDER_AUTOMATIC. */
    tonwerk_provider provider;
    /** As in the options. */
    uint32_t threads;
    /** In Hz, what the model was made for: 44,100 unless its metadata has another one. */
    uint32_t sample_rate;
    /** Bits of the stems that the model really gives, by its metadata; without that, all. */
    uint32_t stems;
    /** The most that step, lookahead, blend and 5 may come to, by its metadata; without that, 256. */
    uint32_t rows;
    /** Bytes of the serialized model. */
    uint64_t model_size;
    /** Bytes by which the process has grown while the model was loaded, and while it was run for the first
     *  time once that is done. What other threads did meanwhile counts, and memory that was free before does
     *  not. 0 if the system does not tell. */
    uint64_t memory;
} tonwerk_context_info;

/** What a stream made by tonwerk_stream_create is asked to do: the head of tonwerk_stream_options. */
typedef struct tonwerk_config
{
    /** sizeof(tonwerk_config). */
    uint32_t size;
    /** As in tonwerk_stream_options. */
    uint32_t stems;
} tonwerk_config;

/** What a stream is asked to do. Begin with TONWERK_STREAM_OPTIONS_INIT, then tonwerk_preset. */
typedef struct tonwerk_stream_options
{
    /** sizeof(tonwerk_stream_options). Bytes beyond those that the library knows must be 0. */
    uint32_t size;
    /** The stems to ask of the model: the sum of 1u << TONWERK_VOCALS to 1u << TONWERK_BASS. A stem that is
     *  not asked for is silent. Every stream has a choice of its own. */
    uint32_t stems;
    /** The model runs once for so many steps of 1,024 frames. Few: low latency and much work. 0: all three
     *  numbers are those of the preset "normal", and the other two must be 0. */
    uint32_t step;
    /** Of a run's answer, so many of the newest steps wait until the next run has seen what follows them. */
    uint32_t lookahead;
    /** Over so many steps a run's answer is faded into that of the next one; at most `step`. */
    uint32_t blend;
} tonwerk_stream_options;

#define TONWERK_STREAM_OPTIONS_INIT                                                                          \
    {                                                                                                        \
        sizeof(tonwerk_stream_options), TONWERK_ALL_STEMS, 0, 0, 0                                           \
    }

/** How a stream goes. */
typedef struct tonwerk_stream_info
{
    /** sizeof(tonwerk_stream_info), set by the caller; what the library does not know becomes 0. */
    uint32_t size;
    /** The choice of the options, "normal" as its three numbers. */
    uint32_t stems;
    uint32_t step;
    uint32_t lookahead;
    uint32_t blend;
    /** 0. */
    uint32_t reserved;
    /** What the functions of these names return. */
    uint64_t latency;
    uint64_t frames_until_result;
    uint64_t available;
    /** Runs of the model since the beginning or the last reset, those that failed included. */
    uint64_t runs;
    /** Runs that failed, and left silence. */
    uint64_t failed_runs;
    /** How long the last and the longest run took, without the wait for other streams' runs. */
    double last_run_seconds;
    double worst_run_seconds;
} tonwerk_stream_info;

/** The library's version, such as "1.2.3". [any-thread] */
TONWERK_C_API const char* tonwerk_version(void);

/** The version of the interface that the library was built with, as TONWERK_C_VERSION. [any-thread] */
TONWERK_C_API uint32_t tonwerk_c_version(void);

/** A sentence for a status; for a number that is none, one that says so. Never null. [any-thread] */
TONWERK_C_API const char* tonwerk_status_text(tonwerk_status status);

/** What went wrong in the last failed call of this thread, in one or two sentences, with the reason that
 *  the inference runtime gave; "" if none has failed. Valid until this thread's next failing call.
 *  [any-thread] */
TONWERK_C_API const char* tonwerk_last_error(void);

/**
 * Sets step, lookahead and blend of the options to those of a preset, and leaves the rest.
 * [any-thread]
 * \param name "instant": lowest latency; "live": low latency for half the work of that; "normal": least work;
 *        "smooth": no audible joins of runs; "best": most quality. docs/presets.md has figures
 * \param options with their size
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_preset(const char* name,
                                                            tonwerk_stream_options* options);

/** The name of the preset of that number, from 0 on by rising latency; null behind the last one.
 *  [any-thread] */
TONWERK_C_API const char* tonwerk_preset_name(uint32_t number);

/**
 * Loads a model, and the inference runtime with the first one.
 * [any-thread]
 * \param model the serialized ONNX model, plain or scrambled; read during the call only
 * \param modelSize its number of bytes
 * \param options null: as TONWERK_CONTEXT_OPTIONS_INIT
 * \param context receives the handle, or null if the call fails
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT, TONWERK_OUT_OF_MEMORY, TONWERK_MODEL_REFUSED,
 *         TONWERK_PROVIDER_REFUSED
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_context_open(const void* model, size_t modelSize,
                                                                  const tonwerk_context_options* options,
                                                                  tonwerk_context** context);

/** tonwerk_context_open with a key and no other option. [any-thread] */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_context_create(const void* model, size_t modelSize,
                                                                    const void* key, size_t keySize,
                                                                    tonwerk_context** context);

/**
 * Tells what is known of a context.
 * [any-thread]
 * \param info with its size; receives the rest
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_context_get_info(const tonwerk_context* context,
                                                                      tonwerk_context_info* info);

/** An entry of the model's metadata, such as "tonwerk.name" or "tonwerk.license"; null if the model has no
 *  such entry, or for null. Valid as long as the context. [any-thread] */
TONWERK_C_API const char* tonwerk_context_metadata(const tonwerk_context* context, const char* key);

/** Gives a context back. Its streams go on: the model goes with the last of them. Null is allowed.
 *  [any-thread, no other call for this context under way or to come] */
TONWERK_C_API void tonwerk_context_destroy(tonwerk_context* context);

/**
 * Opens a stream on a model, which the stream keeps alive.
 * [any-thread]
 * \param options null: as TONWERK_STREAM_OPTIONS_INIT
 * \param stream receives the handle, or null if the call fails
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT, TONWERK_OUT_OF_MEMORY, TONWERK_STREAM_FAILED
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_open(tonwerk_context* context,
                                                                 const tonwerk_stream_options* options,
                                                                 tonwerk_stream** stream);

/** tonwerk_stream_open with a choice of stems and no other option. Null: all six stems. [any-thread] */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_create(tonwerk_context* context,
                                                                   const tonwerk_config* config,
                                                                   tonwerk_stream** stream);

/** Closes a stream; what has not been read is gone. Null is allowed.
 *  [any-thread, no other call for this stream under way or to come] */
TONWERK_C_API void tonwerk_stream_destroy(tonwerk_stream* stream);

/**
 * Feeds the next block of the stream.
 * [stream-thread]
 * \param interleaved 2 * frames samples; read during the call only; may be null if frames is 0
 * \param frames any number
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT, TONWERK_STREAM_ENDED; TONWERK_OUT_OF_MEMORY,
 *         TONWERK_STREAM_FAILED or TONWERK_CANCELLED, after which the stream takes no more input
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_push(tonwerk_stream* stream,
                                                                 const float* interleaved, size_t frames);

/** The same for a buffer of `frames` samples per channel. [stream-thread] */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_push_planar(tonwerk_stream* stream,
                                                                        const float* left, const float* right,
                                                                        size_t frames);

/** Ends the stream: all that is still held becomes available, so that as many frames come out as went in.
 *  Returns as tonwerk_stream_push. [stream-thread] */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_flush(tonwerk_stream* stream);

/** Begins a new stream on the handle, whatever has become of the former one: what was pushed and not read is
 *  gone, the counts of runs begin again. Allocates nothing.
 *  [stream-thread]
 *  \return TONWERK_OK, TONWERK_INVALID_ARGUMENT */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_reset(tonwerk_stream* stream);

/** Ends a push or flush that is under way on another thread, soon also if it is running the model: it and
 *  every later one return TONWERK_CANCELLED until a reset. Null is allowed.
 *  [any-thread, also while a call for this stream is under way] */
TONWERK_C_API void tonwerk_stream_cancel(tonwerk_stream* stream);

/** Frames that can be read now; 0 for null. [stream-thread] */
TONWERK_C_API uint64_t tonwerk_stream_available(const tonwerk_stream* stream);

/**
 * Copies out the oldest frames that have not been read, of all stems at the same time.
 * [stream-thread]
 * \param stems one buffer of 2 * frames samples for each stem, which receives interleaved samples; a null
 *        pointer in the array passes that stem over
 * \param frames the most to read; fewer are read if fewer are available
 * \param framesRead receives how many were read: 0 if none are available, or if the call fails
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_read(tonwerk_stream* stream,
                                                                 float* const stems[TONWERK_STEM_COUNT],
                                                                 size_t frames, size_t* framesRead);

/** The same for one buffer of `frames` samples per channel: that of a stem's left channel is at the place
 *  2 * stem, that of its right one behind it. [stream-thread] */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_read_planar(
    tonwerk_stream* stream, float* const channels[TONWERK_CHANNEL_COUNT], size_t frames, size_t* framesRead);

/** Frames to push until the model runs next; at least 1, but 0 for null and if the stream takes no more
 *  input. Pushing fewer only copies. [stream-thread] */
TONWERK_C_API uint64_t tonwerk_stream_frames_until_result(const tonwerk_stream* stream);

/** The most frames that are ever held back, the same for the whole life of a stream: 259,071 in "normal". A
 *  host that delays its other signals by this many frames always has the stems in time. 0 for null.
 *  [any-thread] */
TONWERK_C_API uint64_t tonwerk_stream_latency(const tonwerk_stream* stream);

/**
 * Tells how a stream goes.
 * [stream-thread]
 * \param info with its size; receives the rest
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT
 */
TONWERK_C_API TONWERK_CHECKED tonwerk_status tonwerk_stream_get_info(const tonwerk_stream* stream,
                                                                     tonwerk_stream_info* info);

#endif /* TONWERK_TONWERK_C_H */
