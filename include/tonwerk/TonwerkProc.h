// SPDX-License-Identifier: MIT
/// \file TonwerkProc.h
/// The whole public interface of tonwerk: separating a stereo stream into stems, block by block.
///
/// \code
/// #include <tonwerk/TonwerkProc.h>
///
/// #include <algorithm>
/// #include <cstddef>
/// #include <memory>
/// #include <utility>
/// #include <vector>
///
/// // Separates interleaved stereo samples; returns the vocals stem, as long as the input.
/// std::vector<float> separateVocals(const std::vector<char>& modelBytes, const std::vector<float>& song)
/// {
///     tonwerk::ModelData model{modelBytes.data(), modelBytes.size(), ""};
///     auto context = std::make_shared<tonwerk::InferenceContext>(std::move(model));
///
///     tonwerk::TonwerkProcConfig config{}; // the braces matter: they clear the stem switches
///     config.vocals = 1;
///     config.channels = 2;
///     config.interleaved = true;
///     tonwerk::TonwerkProc processor(context, config);
///
///     std::vector<float> vocals;
///     std::size_t position = 0;
///     while (position < song.size())
///     {
///         const auto wanted = static_cast<std::size_t>(2 * processor.maxInputSize());
///         const auto count = std::min(wanted, song.size() - position);
///         const auto* first = song.data() + position;
///         position += count;
///         const auto stems = processor.process({first, first + count}, position == song.size());
///         if (!stems.empty())
///             vocals.insert(vocals.end(), stems[0].begin(), stems[0].end());
///     }
///     return vocals;
/// }
/// \endcode
///
/// ### Streaming
/// A stream is one processor's life: consecutive blocks through TonwerkProc::process, the last one with `eof`
/// set (it may be empty). The first result begins with the first input sample, every later result goes on
/// where the one before ended, and at the end as many samples have come back per stem as went in. Nothing
/// resets a processor: build a new one per stream, which is cheap next to loading a model.
///
/// ### Sizes and when results come
/// Let M be TonwerkProc::maxInputSize(): 257,024 frames (samples per channel) until the model has run once,
/// 254,976 from then on. A call returns stems as soon as at least M frames are buffered, otherwise no
/// vectors. It takes at most 261,120 buffered frames the first time and 263,168 later, of which the newest
/// 4,096 stay behind as the overlap to the next chunk.
///
/// | call                                        | frames per stem returned |
/// |---------------------------------------------|--------------------------|
/// | first block of 257,024                      | 252,928                  |
/// | each further block of 254,976               | 254,976                  |
/// | first block of 261,120 or more              | 257,024                  |
/// | `eof`                                       | all that is still held   |
/// | `eof` when nothing was ever fed, or again   | no vectors               |
///
/// At most 514,048 frames are ever buffered; a block that does not fit is refused with an exception and
/// changes nothing, so blocks of M or smaller are always safe.
///
/// Latency, as the most frames that have come in and not gone out again, the block that is being gathered
/// among them: 259,071 with blocks of M frames each time, 257,023 with blocks of 1,024, at most 255,999 + b
/// with blocks of b frames that are a whole number of hops (and not more than M). The time of one model run
/// comes on top; calls that complete no chunk only copy their block.
///
/// ### The block-size rule
/// Audio moves on in hops of 1,024 frames. Whenever a chunk is taken (at least M frames buffered, no `eof`),
/// the buffered total should be a whole number of hops. That holds for blocks that divide 1,024 or are
/// multiples of it, and for blocks of M frames. With other sizes (441, 480, 1,000 ...) up to 1,023 frames per
/// chunk are lost and the stems shift against the residual's mixture by as much: hand such blocks to the
/// StreamFeeder of StreamFeeder.h, which gathers them and calls `process` with M frames. The block that
/// carries `eof` may have any size.
///
/// ### Threads
/// No thread is started and no lock is taken. One processor belongs to one thread at a time. Processors that
/// share a context share its network without a lock: their constructors and `process` calls must not overlap.
/// Processors of different contexts may be inside calls at the same time.
///
/// Contexts come and go while all is quiet: build one, assign to one, or give up the last share of one (the
/// context's own, or the last processor that is built on it) only while no other context is being built or
/// destroyed and no processor of any context is inside a call or its constructor. All of them write to the
/// log of the process, which one context owns: it would be put up or taken away under their hands.
///
/// ### Unusual samples
/// A transform frame of 4,096 samples that contains a NaN or infinity is digital silence for the network. So
/// it weakens the stems at most 4,095 samples before and after the bad sample, in its channel; a network that
/// looks at neighbouring frames sees a moment of silence there. The stems and their mix stay finite; the
/// residual is not finite just where the input is not. Samples beyond full scale are processed as they are,
/// up to about 1e30, where sums of squares and spectra come near the end of the float range.
/// Numbers below 1.2e-38 count as 0; the thread's own floating-point mode is back when a call returns.
///
/// ### Log
/// Warnings and errors are written to standard output as text. The first context built while no log exists
/// owns the log; when that context is destroyed nothing is logged until another context is built.
///
/// ### Exceptions
/// Failures leave as exceptions derived from `std::exception`, never as codes, and never end the process:
/// `std::runtime_error` with a fixed text (given with each function), `std::bad_alloc`, and the runtime's own
/// exception for a model that it refuses. A model run that fails while streaming is logged, not thrown, and
/// the stream goes on. Of that chunk the stems that were asked for are what the run left behind: an earlier
/// stretch of the stream once more, silence if there was none, or parts of a result. The residual is what
/// they leave of the input, as ever; stems that were not asked for are silent. The neighbouring chunks are as
/// they would be, but for the 3,072 frames over which the joins fade.
///
/// After an exception out of TonwerkProc::process the stream goes on, too. Unless the block was refused (too
/// large, or not of 2 channels) it has been taken: go on with the next one, at the end with an empty one. If
/// memory ran out for the results, nothing is lost and the next call returns the more. If the model run
/// itself threw, its chunk is lost: the next result begins behind it, all eight stems in place, the six of
/// the model fading in over 3,072 frames.

#ifndef TONWERK_TONWERKPROC_H
#define TONWERK_TONWERKPROC_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#if defined(_WIN32)
#if defined(TONWERK_BUILDING_LIBRARY)
#define TONWERK_API __declspec(dllexport)
#else
#define TONWERK_API __declspec(dllimport)
#endif
#else
#define TONWERK_API __attribute__((visibility("default")))
#endif

namespace tonwerk
{

class InferenceContextImpl;
class TonwerkProcImpl;

/// A separation model as bytes in memory.
struct ModelData
{
    /// The serialized ONNX model, plain or scrambled. Not owned; read only while InferenceContext is
    /// constructed.
    const void* data;
    /// Number of bytes at `data`.
    std::uint64_t size;
    /// Scrambling key: byte i of the model is XORed with byte (i modulo key length) of the key. Empty: plain
    /// bytes.
    std::string key;
};

/// What one processor is asked to do. Write `TonwerkProcConfig config{};` and then set what you need: without
/// the braces the stem switches are undefined.
struct TonwerkProcConfig
{
    /// Stem switches: 1 asks the model for that stem; a stem not asked for is returned as silence. All
    /// processors of one context share the switches: those of the processor built last hold for all.
    std::uint32_t vocals : 1;
    std::uint32_t drum : 1;
    std::uint32_t piano : 1;
    std::uint32_t acousticGuitar : 1;
    std::uint32_t electricGuitar : 1;
    std::uint32_t bass : 1;
    std::uint32_t : 26; // fills the word, so that every compiler puts spareFlag at offset 4
    /// Kept, without effect.
    bool spareFlag = false;
    /// Kept, without effect.
    std::uint64_t configExtra = 0;
    /// Channels of the input. Only 2 is supported: a processor built with another number throws, from its
    /// constructor or from its first `process` call.
    std::int32_t channels = 2;
    /// Sample order of the input and of every returned vector. True: left, right, left, right ...; false: all
    /// of the left channel, then all of the right.
    bool interleaved = false;
};

/// A loaded separation model. Build one per model and share it through `std::shared_ptr` with any number of
/// processors, which keep it alive. Movable, not copyable.
class InferenceContext
{
public:
    /// Loads the model, on the last of the execution providers DirectML, CUDA and ROCm that takes it,
    /// otherwise on the CPU. The first context loads the inference runtime for the whole process: from the
    /// folder of this library; if it cannot be loaded from there, from where the system looks for libraries;
    /// never from the current directory.
    /// \throws std::runtime_error if the runtime cannot be loaded or is older than 1.21; the text names the
    ///         file, where it was looked for and the system's reason
    /// \throws std::exception (the runtime's own exception) if the bytes are no model that the runtime
    ///         accepts
    /// \throws std::bad_alloc
    TONWERK_API explicit InferenceContext(ModelData model);

    /// Takes over the model of `other`, which is left empty: good only to be assigned to or destroyed.
    TONWERK_API InferenceContext(InferenceContext&& other) noexcept;

    /// Releases the own model and takes over that of `other`, which is left empty. Self-assignment does
    /// nothing.
    TONWERK_API InferenceContext& operator=(InferenceContext&& other) noexcept;

    InferenceContext(const InferenceContext&) = delete;
    InferenceContext& operator=(const InferenceContext&) = delete;

    /// Releases the model once the last processor built on it is gone, and the log if this context set it up.
    TONWERK_API ~InferenceContext();

private:
    friend class TonwerkProcImpl;

    InferenceContextImpl* impl;
};

/// One streaming separator: one instance per audio stream, used by one thread at a time.
class TonwerkProc
{
public:
    /// Builds a separator on a loaded model, which it keeps alive.
    /// \throws std::runtime_error "Inference context is not provided" for a null or moved-from context
    /// \throws std::runtime_error "Inference for specified model is not initialized" for a context without
    ///         model
    /// \throws std::bad_alloc
    TONWERK_API TonwerkProc(std::shared_ptr<InferenceContext> context, TonwerkProcConfig config);

    TONWERK_API ~TonwerkProc();

    /// DANGER: a SHALLOW copy. Afterwards both handles point to ONE separator, the former separator of this
    /// handle is LEAKED, and destroying both handles frees the shared one TWICE. It is part of the binary
    /// interface and stays as it is; do not use it. Hold processors through `std::unique_ptr` instead.
    TONWERK_API TonwerkProc& operator=(const TonwerkProc& other);

    TonwerkProc(const TonwerkProc&) = delete;

    /// Frames per channel that one `process` call should carry: 257,024 before the first model run, 254,976
    /// after it. A multiple of 1,024.
    /// \throws std::runtime_error "Processor is not prepared"
    TONWERK_API std::uint64_t maxInputSize() const;

    /// Feeds the next block of the stream and returns the stems that it completes.
    /// \param input two channels of any equal length, in the configured order; an odd last sample is ignored
    /// \param eof true with the last block: returns everything still held
    /// \return no vectors while too little is buffered; otherwise eight vectors of equal length, two channels
    ///         each in the configured order: vocals, drum, piano, acoustic guitar, electric guitar, bass,
    ///         residual (the input minus the six), mix (the sum of the six)
    /// \throws std::runtime_error "Buffer overflow: cannot accept chunk of size N" if N frames do not fit; the
    ///         stream is unchanged and may go on with smaller blocks
    /// \throws std::runtime_error "Processor is not prepared"
    /// \throws std::bad_alloc
    /// \throws std::exception if the configured channel count is not 2, or the model breaks its contract
    TONWERK_API std::vector<std::vector<float>> process(const std::vector<float>& input, bool eof);

private:
    TonwerkProcImpl* impl;
};

} // namespace tonwerk

#endif // TONWERK_TONWERKPROC_H
