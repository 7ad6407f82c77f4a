// SPDX-License-Identifier: MIT
#include "separation/StemStream.h"

#include <array>
#include <utility>

#include "separation/LibraryCall.h"

namespace tonwerk::app
{

namespace
{

constexpr const char* sentence = "The song cannot be separated";

void append(StemStream::Stems& stems, const StemStream::Stems& more)
{
    for (std::size_t stem = 0; stem < stems.size(); ++stem)
        stems[stem].insert(stems[stem].end(), more[stem].begin(), more[stem].end());
}

tonwerk_stream* openStream(const Model& model, const StemSet& asked, const Quality& quality)
{
    tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
    options.stems = static_cast<std::uint32_t>(asked.to_ulong()) & TONWERK_ALL_STEMS;
    options.step = quality.step;
    options.lookahead = quality.lookahead;
    options.blend = quality.blend;
    tonwerk_stream* stream = nullptr;
    requireDone(tonwerk_stream_open(model.context(), &options, &stream), sentence);
    return stream;
}

} // namespace

StemStream::StemStream(std::shared_ptr<Model> model, const StemSet& asked, const Quality& quality,
                       unsigned sampleRate)
    : model(std::move(model)), stream(openStream(*this->model, asked, quality)),
      cancelling([this] { tonwerk_stream_cancel(stream.get()); }), rate(sampleRate)
{
    if (rate != this->model->sampleRate())
        conversion.emplace(rate, this->model->sampleRate(), asked);
}

std::size_t StemStream::framesUntilResult() const
{
    const std::uint64_t frames = tonwerk_stream_frames_until_result(stream.get());
    const std::uint64_t modelRate = model->sampleRate();
    return static_cast<std::size_t>((frames * rate + modelRate - 1) / modelRate);
}

StemStream::Stems StemStream::feed(const std::vector<float>& song)
{
    if (!conversion)
        return feedModel(song);
    conversion->toModel(song, atModelRate);
    return conversion->fromModel(feedModel(atModelRate));
}

StemStream::Stems StemStream::finish()
{
    if (!conversion)
        return finishModel();
    conversion->endSong(atModelRate);
    Stems stems = conversion->fromModel(feedModel(atModelRate));
    append(stems, conversion->fromModel(finishModel()));
    append(stems, conversion->finish());
    return stems;
}

StemStream::Stems StemStream::feedModel(const std::vector<float>& input)
{
    nullMeter.feed(input);
    requireDone(tonwerk_stream_push(stream.get(), input.data(), input.size() / 2), sentence);
    return readModel();
}

StemStream::Stems StemStream::finishModel()
{
    requireDone(tonwerk_stream_flush(stream.get()), sentence);
    return readModel();
}

StemStream::Stems StemStream::readModel()
{
    const auto frames = static_cast<std::size_t>(tonwerk_stream_available(stream.get()));
    Stems stems(stemNames.size(), std::vector<float>(2 * frames));
    std::array<float*, TONWERK_STEM_COUNT> targets{};
    for (std::size_t stem = 0; stem < stems.size(); ++stem)
        targets.at(stem) = stems[stem].data();
    std::size_t count = 0;
    requireDone(tonwerk_stream_read(stream.get(), targets.data(), frames, &count), sentence);
    nullMeter.compare(stems);
    return stems;
}

std::uint64_t StemStream::failedRuns() const
{
    tonwerk_stream_info info{};
    info.size = sizeof info;
    requireDone(tonwerk_stream_get_info(stream.get(), &info), sentence);
    return info.failed_runs;
}

std::uint64_t StemStream::nonFiniteSamples() const
{
    return conversion ? conversion->nonFiniteSamples() : nullMeter.nonFiniteSamples();
}

} // namespace tonwerk::app
