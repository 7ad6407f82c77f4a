// SPDX-License-Identifier: MIT
/**
 * \file tonwerk_c.h
 * tonwerk for every compiler and language: a flat C interface to streaming stem separation.
 *
 * \code
 * tonwerk_context* context = NULL;
 * tonwerk_stream* stream = NULL;
 * if (tonwerk_context_create(model, modelSize, NULL, 0, &context) != TONWERK_OK ||
 *     tonwerk_stream_create(context, NULL, &stream) != TONWERK_OK)
 *     complain(tonwerk_last_error());
 * while (haveBlock(block, &frames)) // any number of frames: 441, 480, 1000 ...
 * {
 *     size_t count;
 *     tonwerk_stream_push(stream, block, frames);
 *     do
 *     {
 *         tonwerk_stream_read(stream, stems, capacity, &count);
 *         use(stems, count);
 *     } while (count > 0);
 * }
 * tonwerk_stream_flush(stream); // then read the rest as above
 * tonwerk_stream_destroy(stream);
 * tonwerk_context_destroy(context);
 * \endcode
 *
 * Sound
 *     Stereo samples, 32-bit float, interleaved: left, right, left, right ... A frame is one sample of each
 *     channel. The library does not resample: give the model the sample rate that it was made for.
 *
 * Why push and read are two calls
 *     Stems are completed some 255,000 frames at a time. Had one call to return what it completes, every
 *     host would need buffers of that size and a queue behind them. Here the stream keeps the queue: a host
 *     pushes blocks as they come and reads as many frames as it wants, for instance one block for each block,
 *     into buffers of its own. The stems are the same, bit for bit, for every way to cut the input.
 *
 * Latency and memory
 *     After n frames have been pushed, at least n - tonwerk_stream_latency() frames have become available.
 *     A push that completes a chunk takes as long as a run of the model, every other one only copies. Frames
 *     that are available and not read stay in memory, 64 bytes each, without a limit: read after each push.
 *
 * Failures
 *     Every function that can fail returns a status and never throws, and leaves a sentence for the calling
 *     thread in tonwerk_last_error(). A model run that fails while streaming is no failure: it is logged,
 *     and the stems of that chunk are whatever the run left: an earlier stretch once more, silence, or parts
 *     of a result. Their sum and the residual still give the input.
 *
 * Memory across the border
 *     The caller owns every buffer and the library owns every handle; nothing that one side allocates is
 *     freed by the other. No pointer is kept after a call. Texts that are returned are the library's.
 *
 * Threads
 *     No thread is started and no lock is taken. One stream belongs to one thread at a time. Streams of one
 *     context share its network: their calls must not overlap. Streams of different contexts may
 *     be inside calls at the same time. Create a context, and destroy a context or its last stream, only
 *     while no other call of this library is under way: they put up and take down the process-wide log,
 *     which writes warnings and errors to standard output.
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
    /** The bytes are no model, or the inference runtime cannot be loaded. */
    TONWERK_MODEL_REFUSED = 3,
    /** A push or flush after a flush: make a new stream. What is available can still be read. */
    TONWERK_STREAM_ENDED = 4,
    /** The stream broke down, now or before: make a new one. What is available can still be read. */
    TONWERK_STREAM_FAILED = 5
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

/** What a stream is asked to do. */
typedef struct tonwerk_config
{
    /** sizeof(tonwerk_config), by which the library knows the fields that the caller knows. Bytes beyond
     *  those that the library knows must be 0. */
    uint32_t size;
    /** The stems to ask of the model: the sum of 1u << TONWERK_VOCALS to 1u << TONWERK_BASS. A stem that
     * is not asked for is silent. Streams of one context share this choice: that of the stream made last
     * holds for all. */
    uint32_t stems;
} tonwerk_config;

/** The library's version, such as "1.2.3". */
TONWERK_C_API const char* tonwerk_version(void);

/** A sentence for a status; for a number that is none, one that says so. Never null. */
TONWERK_C_API const char* tonwerk_status_text(tonwerk_status status);

/** What went wrong in the last failed call of this thread, in one or two sentences, with the reason that
 * the inference runtime gave; "" if none has failed. Valid until this thread's next failing call. */
TONWERK_C_API const char* tonwerk_last_error(void);

/**
 * Loads a model, and the inference runtime with the first one.
 * \param model the serialized ONNX model, plain or scrambled; read during the call only
 * \param modelSize its number of bytes
 * \param key byte i of the model is XORed with byte (i modulo keySize) of the key; null if keySize is 0
 * \param keySize number of bytes of the key; 0: the model is plain
 * \param context receives the handle, or null if the call fails
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT, TONWERK_OUT_OF_MEMORY, TONWERK_MODEL_REFUSED
 */
TONWERK_C_API tonwerk_status tonwerk_context_create(const void* model, size_t modelSize, const void* key,
                                                    size_t keySize, tonwerk_context** context);

/** Gives a context back. Its streams go on: the model goes with the last of them. Null is allowed. */
TONWERK_C_API void tonwerk_context_destroy(tonwerk_context* context);

/**
 * Opens a stream on a model, which the stream keeps alive.
 * \param config null: all six stems
 * \param stream receives the handle, or null if the call fails
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT, TONWERK_OUT_OF_MEMORY, TONWERK_STREAM_FAILED
 */
TONWERK_C_API tonwerk_status tonwerk_stream_create(tonwerk_context* context, const tonwerk_config* config,
                                                   tonwerk_stream** stream);

/** Closes a stream; what has not been read is gone. Null is allowed. */
TONWERK_C_API void tonwerk_stream_destroy(tonwerk_stream* stream);

/**
 * Feeds the next block of the stream.
 * \param interleaved 2 * frames samples; read during the call only; may be null if frames is 0
 * \param frames any number
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT, TONWERK_STREAM_ENDED; TONWERK_OUT_OF_MEMORY or
 *         TONWERK_STREAM_FAILED, after which the stream takes no more input
 */
TONWERK_C_API tonwerk_status tonwerk_stream_push(tonwerk_stream* stream, const float* interleaved,
                                                 size_t frames);

/** Ends the stream: all that is still held becomes available, so that as many frames come out as went in.
 *  Returns as tonwerk_stream_push. */
TONWERK_C_API tonwerk_status tonwerk_stream_flush(tonwerk_stream* stream);

/** Frames that can be read now; 0 for null. */
TONWERK_C_API uint64_t tonwerk_stream_available(const tonwerk_stream* stream);

/**
 * Copies out the oldest frames that have not been read, of all stems at the same time.
 * \param stems one buffer of 2 * frames samples for each stem, which receives interleaved samples; a null
 *        pointer in the array passes that stem over
 * \param frames the most to read; fewer are read if fewer are available
 * \param framesRead receives how many were read: 0 if none are available, or if the call fails
 * \return TONWERK_OK, TONWERK_INVALID_ARGUMENT
 */
TONWERK_C_API tonwerk_status tonwerk_stream_read(tonwerk_stream* stream,
                                                 float* const stems[TONWERK_STEM_COUNT], size_t frames,
                                                 size_t* framesRead);

/** The most frames that are ever held back, the same for the whole life of a stream: 259,071. A host that
 *  delays its other signals by this many frames always has the stems in time. 0 for null. */
TONWERK_C_API uint64_t tonwerk_stream_latency(const tonwerk_stream* stream);

#endif /* TONWERK_TONWERK_C_H */
