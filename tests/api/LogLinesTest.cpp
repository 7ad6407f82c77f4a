// SPDX-License-Identifier: MIT
#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "api/ApiFixture.h"
#include "common/Log.h"

namespace
{

/// A printed line with time, thread and source line replaced by T, # and L; any other line as it is.
std::string masked(const std::string& line)
{
    static const std::regex printed("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} (.{5}) \\[\\d+\\] "
                                    "(\\[[^@]*@)\\d+(\\] .*)");
    return std::regex_replace(line, printed, "T $1 [#] $2L$3");
}

class LogLines : public ApiOnFakeBackend
{
protected:
    using Lines = std::vector<std::string>;

    LogLines() { ::testing::internal::CaptureStdout(); }

    ~LogLines() override { printed(); }

    /// Everything printed to standard output so far, masked; later output is not captured any more.
    Lines printed()
    {
        if (!std::exchange(capturing, false))
            return {};
        std::istringstream output(::testing::internal::GetCapturedStdout());
        Lines lines;
        for (std::string line; std::getline(output, line);)
        {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            lines.push_back(masked(line));
        }
        return lines;
    }

    static std::string line(const std::string& severity, const std::string& function,
                            const std::string& message)
    {
        return "T " + severity + " [#] [" + function + "@L] " + message;
    }

    static void addApiCall(Lines& lines, std::size_t floats, const std::string& eof)
    {
        const std::string frames = std::to_string(floats / 2);
        const std::string api = "tonwerk::TonwerkProcImpl::process";
        lines.push_back(
            line("DEBUG", api,
                 "called with data size: " + std::to_string(floats) + ", eof=" + eof + ", channels=2"));
        lines.push_back(line("DEBUG", api, "Processing chunk: input size " + frames + ", eof=" + eof));
        lines.push_back(line("DEBUG", "ChunkProcessor::process",
                             "ChunkProcessor::process input shape: 2x" + frames + ", eof: " + eof));
    }

    /// From the prepared chunk to the returned stems. Of the six, three are switched off: nothing is computed
    /// for them once the frames of `fading` hops have gone.
    static void addChunk(Lines& lines, std::size_t prepared, std::size_t analysed, std::size_t frames,
                         std::size_t fading, std::size_t returned)
    {
        const std::string engine = "ChunkProcessor::process";
        lines.push_back(
            line("DEBUG", engine, "Data prepared for preprocessing, shape: 2x" + std::to_string(prepared)));
        lines.push_back(
            line("DEBUG", "PreProcessor::process", "Process signal: " + std::to_string(analysed)));
        lines.push_back(line("DEBUG", "PreProcessor::process", "Process signal finished"));
        lines.push_back(
            line("DEBUG", engine, "Preprocessed data shape: 6x2x" + std::to_string(frames * 4096)));
        for (std::size_t i = 0; i < 3 * (frames + fading); ++i)
            for (const char* rank : {"2", "1"})
                lines.push_back(line("VERB ", "shiftArray",
                                     "shiftArray called with step: 1024, input dimension: " +
                                         std::string(rank) + ", input length: 4096"));
        lines.push_back(
            line("DEBUG", engine, "ChunkProcessor::process result shape: 7x2x" + std::to_string(returned)));
        for (const char* message : {"Processed stems: 6", "Processed residual stem", "Processed mix stem"})
            lines.push_back(line("DEBUG", "tonwerk::TonwerkProcImpl::process", message));
    }

private:
    bool capturing = true;
};

} // namespace

TEST_F(LogLines, AWholeStreamIsLoggedLineByLine)
{
    const auto context = loadContext("gains.onnx");
    plog::get()->setMaxSeverity(plog::verbose);
    {
        auto config = allStems();
        config.drum = config.piano = config.electricGuitar = 0;
        tonwerk::TonwerkProc processor(context, config);
        std::vector<float> block(2 * 1000);
        block[77] = 1.25F;
        processor.process(block, false);
        processor.process(std::vector<float>(2 * 256024), false);
        processor.process({}, true);
    }
    Lines expected{
        line("INFO ", "tonwerk::TonwerkProcImpl::TonwerkProcImpl",
             "Selected stems: vocals=1, drum=0, bass=1, piano=0, acousticGuitar=1, electricGuitar=0"),
        line("DEBUG", "BufferAggregator::BufferAggregator",
             "BufferAggregator constructor - channels: 2, size: 514048, batch: 1"),
        line("VERB ", "BufferAggregator::BufferAggregator", "Buffer shape: [1, 2, 514048]"),
        line("VERB ", "BufferAggregator::BufferAggregator", "Buffer total size: 1028096 elements")};
    addApiCall(expected, 2000, "0");
    expected.push_back(
        line("DEBUG", "ChunkProcessor::process", "Not enough data to process, returning empty"));
    addApiCall(expected, 512048, "0");
    expected.push_back(line("INFO ", "ChunkProcessor::process", "MAX2: 1.25"));
    addChunk(expected, 261120, 261120, 251, 4, 252928); // 252 frames, one held back
    addApiCall(expected, 0, "1");
    expected.push_back(line("DEBUG", "ChunkProcessor::process", "Processing EOF"));
    addChunk(expected, 8192, 7168, 5, 0, 4096); // 4 frames and the one held back

    const Lines actual = printed();
    for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i)
        ASSERT_EQ(actual[i], expected[i]) << "line " << i;
    EXPECT_EQ(actual.size(), expected.size());
}

TEST_F(LogLines, ByDefaultOnlyTroubleIsPrinted)
{
    const auto context = loadContext("gains.onnx");
    const auto backend = fakeBackend().lastMade.lock();
    for (const auto& model : {backend->model, failingModel()})
    {
        backend->model = model;
        tonwerk::TonwerkProc processor(context, allStems());
        processor.process(std::vector<float>(2 * 1000), true);
    }
    EXPECT_THROW(tonwerk::TonwerkProc(nullptr, allStems()), std::runtime_error);
    fakeBackend().makesNothing = true;
    try
    {
        tonwerk::TonwerkProc(loadContext("gains.onnx"), allStems());
        ADD_FAILURE() << "a processor without backend";
    }
    catch (const std::runtime_error& failure)
    {
        EXPECT_STREQ(failure.what(), "Inference for specified model is not initialized");
    }
    const std::string constructor = "tonwerk::TonwerkProcImpl::TonwerkProcImpl";
    EXPECT_EQ(printed(), (Lines{line("ERROR", "PreProcessor::process", "Inference failed"), "",
                                line("ERROR", constructor, "Inference context is not provided"),
                                line("ERROR", constructor, "Inference is not initalized!")}));
}
