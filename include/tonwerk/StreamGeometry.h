// SPDX-License-Identifier: MIT
/// \file StreamGeometry.h
/// The fixed sizes of a stream, and what follows from them. Lengths are in samples per channel.
///
/// Header-only: it adds nothing to the library's binary interface. Needs C++17.

#ifndef TONWERK_STREAMGEOMETRY_H
#define TONWERK_STREAMGEOMETRY_H

#include <cstddef>

namespace tonwerk::geometry
{

/// Audio channels.
inline constexpr std::size_t channels = 2;
/// Length of a frame of the transform.
inline constexpr std::size_t fftSize = 4096;
/// From one frame to the next.
inline constexpr std::size_t hop = 1024;
/// Frames that the network sees at a time.
inline constexpr std::size_t segmentFrames = 256;
/// Frequencies of a frame that the network sees: all but half the sample rate.
inline constexpr std::size_t bins = fftSize / 2;
/// Stems that the network gives.
inline constexpr std::size_t stems = 6;

/// The newest samples of a chunk, which open the next one.
inline constexpr std::size_t overlap = fftSize;
/// Frames that a later chunk leaves to the edges of the network's sight: the oldest, and the newest, which is
/// held back until its right neighbour is known.
inline constexpr std::size_t edgeFrames = 2;

/// What is taken at most for the first run of the network; its own mirror image leads it in.
inline constexpr std::size_t longestFirstChunk = (segmentFrames - 1) * hop;
/// And for every later one.
inline constexpr std::size_t longestLaterChunk = (segmentFrames - edgeFrames - 1) * hop + fftSize;

/// TonwerkProc::maxInputSize() before the first run.
inline constexpr std::size_t firstBlock = longestFirstChunk - fftSize;
/// And after it.
inline constexpr std::size_t laterBlock = longestLaterChunk - 2 * fftSize;
/// What the first block completes; every later one completes its own length.
inline constexpr std::size_t firstResult = firstBlock - overlap;
/// New frames of the transform in such a block.
inline constexpr std::size_t newFrames = laterBlock / hop;

/// The most that can be buffered.
inline constexpr std::size_t capacity = 2 * firstBlock;
/// The most that has been fed and not returned, if the stream is fed one sample after another and the library
/// in blocks of maxInputSize().
inline constexpr std::size_t latency = overlap + laterBlock - 1;

static_assert(fftSize % hop == 0, "frames begin and end on hops");

} // namespace tonwerk::geometry

#endif // TONWERK_STREAMGEOMETRY_H
