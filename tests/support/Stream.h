// SPDX-License-Identifier: MIT
/// \file Stream.h
/// Drives the library as a host does: configurations, whole streams.
#ifndef TONWERK_TESTS_SUPPORT_STREAM_H
#define TONWERK_TESTS_SUPPORT_STREAM_H

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tonwerk/TonwerkProc.h>

#include "support/Stereo.h"

/// Places of the stems in a result.
inline constexpr std::size_t vocals = 0;
inline constexpr std::size_t drum = 1;
inline constexpr std::size_t piano = 2;
inline constexpr std::size_t acousticGuitar = 3;
inline constexpr std::size_t electricGuitar = 4;
inline constexpr std::size_t bass = 5;
inline constexpr std::size_t residual = 6;
inline constexpr std::size_t mix = 7;
inline constexpr std::size_t stemCount = 8;

/// What the model gains.onnx multiplies its input with, in the order of the stems.
inline constexpr std::array<float, 6> modelGains{10.0F / 32, 8.0F / 32, 4.0F / 32,
                                                 3.0F / 32,  1.0F / 32, 6.0F / 32};

/// All stems wanted.
tonwerk::TonwerkProcConfig allStems(bool interleaved = true);

/// A context with an analytic model, whose bytes are gone afterwards.
std::shared_ptr<tonwerk::InferenceContext> loadContext(const std::string& model);

/// What a stream returned.
struct StreamResult
{
    std::array<Stereo, stemCount> stems;
    std::vector<std::size_t> lengths; ///< frames that each call returned; 0: no vectors
};

/// A processor that collects what it returns.
class Stream
{
public:
    explicit Stream(std::shared_ptr<tonwerk::InferenceContext> context,
                    tonwerk::TonwerkProcConfig config = allStems());

    /// One call.
    /// \return the frames that it returned
    std::size_t feed(const Stereo& block, bool eof = false);

    /// The whole signal in blocks of maxInputSize(), the last one with `eof`.
    void feedAll(const Stereo& signal);

    tonwerk::TonwerkProc& processor() { return handle; }
    const StreamResult& result() const { return collected; }
    const Stereo& stem(std::size_t index) const { return collected.stems.at(index); }

private:
    tonwerk::TonwerkProc handle;
    bool interleaved;
    StreamResult collected;
};

/// A whole signal through a processor of its own.
StreamResult separate(std::shared_ptr<tonwerk::InferenceContext> context, const Stereo& signal,
                      tonwerk::TonwerkProcConfig config = allStems());

#endif // TONWERK_TESTS_SUPPORT_STREAM_H
