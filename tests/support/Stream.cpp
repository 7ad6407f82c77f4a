// SPDX-License-Identifier: MIT
#include "support/Stream.h"

#include <algorithm>
#include <utility>

#include "support/ModelFile.h"

tonwerk::TonwerkProcConfig allStems(bool interleaved)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = config.drum = config.piano = 1;
    config.acousticGuitar = config.electricGuitar = config.bass = 1;
    config.interleaved = interleaved;
    return config;
}

std::shared_ptr<tonwerk::InferenceContext> loadContext(const std::string& model)
{
    std::vector<char> bytes = readModel(model);
    auto context =
        std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{bytes.data(), bytes.size(), ""});
    std::fill(bytes.begin(), bytes.end(), '\0'); // whoever still reads them afterwards shall notice
    return context;
}

Stream::Stream(std::shared_ptr<tonwerk::InferenceContext> context, tonwerk::TonwerkProcConfig config)
    : handle(std::move(context), config), interleaved(config.interleaved)
{
}

std::size_t Stream::feed(const Stereo& block, bool eof)
{
    const auto stems = handle.process(packed(block, interleaved), eof);
    EXPECT_TRUE(stems.empty() || stems.size() == stemCount) << stems.size() << " vectors";
    const std::size_t length = stems.empty() ? 0 : stems[0].size() / 2;
    for (std::size_t i = 0; i < stems.size(); ++i)
    {
        EXPECT_EQ(stems[i].size(), 2 * length) << "stem " << i;
        const Stereo piece = unpacked(stems[i], interleaved);
        Stereo& whole = collected.stems.at(i);
        whole.left.insert(whole.left.end(), piece.left.begin(), piece.left.end());
        whole.right.insert(whole.right.end(), piece.right.begin(), piece.right.end());
    }
    collected.lengths.push_back(length);
    return length;
}

void Stream::feedAll(const Stereo& signal)
{
    std::size_t position = 0;
    do
    {
        const auto wanted = static_cast<std::size_t>(handle.maxInputSize());
        const std::size_t count = std::min(wanted, signal.size() - position);
        feed(slice(signal, position, count), position + count == signal.size());
        position += count;
    } while (position < signal.size());
}

StreamResult separate(std::shared_ptr<tonwerk::InferenceContext> context, const Stereo& signal,
                      tonwerk::TonwerkProcConfig config)
{
    Stream stream(std::move(context), config);
    stream.feedAll(signal);
    return stream.result();
}
