// SPDX-License-Identifier: MIT
#include "api/TonwerkProcImpl.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "api/InferenceContextImpl.h"
#include "api/SampleLayout.h"
#include "common/FlushDenormals.h"
#include "common/Log.h"
#include "common/StemSwitches.h"
#include "common/Stems.h"
#include "inference/InferenceBackend.h"
#include "tonwerk/StreamGeometry.h"

namespace tonwerk
{

namespace
{

constexpr std::size_t audioChannels = geometry::channels; // the samples are stereo whatever the host says
static_assert(modelStemCount == geometry::stems);

constexpr const char* constructorName = "tonwerk::TonwerkProcImpl::TonwerkProcImpl";
constexpr const char* processName = "tonwerk::TonwerkProcImpl::process";

static_assert(offsetof(TonwerkProcConfig, spareFlag) == 4);
static_assert(offsetof(TonwerkProcConfig, configExtra) == 8);
static_assert(offsetof(TonwerkProcConfig, channels) == 16);
static_assert(offsetof(TonwerkProcConfig, interleaved) == 20);
static_assert(sizeof(TonwerkProcConfig) == 24);
static_assert(offsetof(ModelData, size) == 8);
static_assert(sizeof(InferenceContext) == sizeof(void*) && sizeof(TonwerkProc) == sizeof(void*));

} // namespace

TonwerkProcImpl::TonwerkProcImpl(std::shared_ptr<InferenceContext>&& sharedContext, TonwerkProcConfig config)
    : interleaved(false), spareFlag(false), channels(audioChannels), context(std::move(sharedContext))
{
    if (!context || context->impl == nullptr)
    {
        TONWERK_LOG(error) << "Inference context is not provided";
        throw std::runtime_error("Inference context is not provided");
    }
    backend = context->impl->sharedBackend();
    if (!backend)
    {
        TONWERK_LOG(error) << "Inference is not initalized!";
        throw std::runtime_error("Inference for specified model is not initialized");
    }
    selectStems(config);
    interleaved = config.interleaved;
    channels = static_cast<std::uint64_t>(static_cast<std::int64_t>(config.channels));
    spareFlag = config.spareFlag;
    chunkEngine = std::make_unique<ChunkProcessor>(backend, static_cast<std::size_t>(channels),
                                                   geometry::fftSize, geometry::hop, config.configExtra,
                                                   geometry::segmentFrames, modelStemCount);
}

void TonwerkProcImpl::selectStems(const TonwerkProcConfig& config)
{
    const StemSelection selection = selectionOf(config);
    std::string text;
    for (const std::size_t stem : stemOfFlag)
        text.append(text.empty() ? "" : ", ")
            .append(modelStems[stem].switchName)
            .append(selection[stem] ? "=1" : "=0");
    TONWERK_LOG_AS(constructorName, info) << "Selected stems: " << text;
    setSelectedStems(backend, flagsOf(selection));
}

TonwerkProcImpl::~TonwerkProcImpl()
{
    try
    {
        chunkEngine.reset();
        backend.reset();
    }
    catch (const std::exception& failure)
    {
        TONWERK_LOG(error) << "Exception in destructor: " << failure.what();
    }
    catch (...)
    {
        TONWERK_LOG(error) << "Unknown exception in destructor";
    }
}

void TonwerkProcImpl::requirePrepared() const
{
    if (!chunkEngine || !backend)
        throw std::runtime_error("Processor is not prepared");
}

std::uint64_t TonwerkProcImpl::maxInputSize() const
{
    requirePrepared();
    return chunkEngine->readyThreshold();
}

std::vector<std::vector<float>> TonwerkProcImpl::process(const std::vector<float>& input, bool eof)
{
    requirePrepared();
    const FlushDenormals flushed;
    TONWERK_LOG(debug) << "called with data size: " << input.size() << ", eof=" << eof
                       << ", channels=" << channels;
    TONWERK_LOG(debug) << "Processing chunk: input size " << frameCount(input) << ", eof=" << eof;
    const std::size_t length = chunkEngine->push(hostBlock(input), eof);
    if (length == 0)
        return {};
    // All memory first: if it runs out, what the engine holds is still there for the next call.
    std::vector<std::vector<float>> stems(stemNames.size());
    for (std::vector<float>& stem : stems)
        stem.reserve(audioChannels * length);
    StemSelection silent = selectionOf(selectedStems(backend)); // by the context's processor built last
    std::transform(silent.begin(), silent.end(), silent.begin(), std::logical_not());
    assemble(chunkEngine->process(eof, silent), stems);
    return stems;
}

void TonwerkProcImpl::assemble(const SampleRows& result, std::vector<std::vector<float>>& stems) const
{
    for (std::size_t stem = 0; stem <= modelStemCount; ++stem) // with the mixture
        appendHostSamples(result.row(audioChannels * stem), result.row(audioChannels * stem + 1),
                          result.length, interleaved, stems[stem]);
    TONWERK_LOG_AS(processName, debug) << "Processed stems: " << modelStemCount;
    std::array<const float*, modelStemCount> six{};
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        six[stem] = stems[stem].data();
    stems[mixStem].resize(stems[residualStem].size());
    sumAndSubtract(six, stems[mixStem].size(), stems[residualStem].data(), stems[mixStem].data());
    TONWERK_LOG_AS(processName, debug) << "Processed residual stem";
    TONWERK_LOG_AS(processName, debug) << "Processed mix stem";
}

// A channel count of 0 has no meaningful answer; it is refused when the block meets the buffer's rows.
std::size_t TonwerkProcImpl::frameCount(const std::vector<float>& input) const
{
    return channels == 0 ? 0 : static_cast<std::size_t>(input.size() / channels);
}

// Always two channels: with any other count the buffer refuses the block, whatever is in it.
SampleBlock TonwerkProcImpl::hostBlock(const std::vector<float>& input) const
{
    const std::size_t halves = input.size() / audioChannels;
    if (interleaved)
        return {input.data(), audioChannels, frameCount(input), 1, audioChannels};
    return {input.data(), audioChannels, halves, halves, 1};
}

} // namespace tonwerk
