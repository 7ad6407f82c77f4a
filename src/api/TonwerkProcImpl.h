// SPDX-License-Identifier: MIT
#ifndef TONWERK_API_TONWERKPROCIMPL_H
#define TONWERK_API_TONWERKPROCIMPL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/SampleRows.h"
#include "inference/IInference.h"
#include "pipeline/BufferAggregator.h"
#include "pipeline/ChunkProcessor.h"
#include "tonwerk/TonwerkProc.h"

namespace tonwerk
{

/// What a TonwerkProc handle points to: converts the host's sample vectors to arrays and back, and adds the
/// residual and mix stems to what the chunk engine returns. All streaming state lives in the chunk engine.
class TonwerkProcImpl
{
public:
    /// See TonwerkProc. Tells the backend which stems are wanted.
    TonwerkProcImpl(std::shared_ptr<InferenceContext>&& context, TonwerkProcConfig config);
    TonwerkProcImpl(const TonwerkProcImpl&) = delete;
    TonwerkProcImpl& operator=(const TonwerkProcImpl&) = delete;

    /// Never throws; trouble is logged.
    ~TonwerkProcImpl();

    /// See TonwerkProc.
    std::uint64_t maxInputSize() const;

    /// See TonwerkProc.
    std::vector<std::vector<float>> process(const std::vector<float>& input, bool eof);

private:
    void selectStems(const TonwerkProcConfig& config);
    void requirePrepared() const;
    std::size_t frameCount(const std::vector<float>& input) const;
    SampleBlock hostBlock(const std::vector<float>& input) const;
    void assemble(const SampleRows& result, std::vector<std::vector<float>>& stems) const;

    std::unique_ptr<ChunkProcessor> chunkEngine;
    bool interleaved;
    [[maybe_unused]] bool spareFlag;
    std::uint64_t channels;
    std::shared_ptr<IInference> backend;
    std::shared_ptr<InferenceContext> context;
};

} // namespace tonwerk

#endif // TONWERK_API_TONWERKPROCIMPL_H
