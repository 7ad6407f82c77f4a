// SPDX-License-Identifier: MIT
#include "separation/Separation.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "separation/Model.h"
#include "support/Noise.h"
#include "system/Failure.h"

namespace
{

using namespace tonwerk::app;

constexpr std::size_t songFrames = 600000; // three runs of the model

/// A song in memory.
class MemorySong : public SongSource
{
public:
    explicit MemorySong(std::vector<float> stereo) : samples(std::move(stereo))
    {
        channelCount = 2;
        rate = 44100;
        stated = samples.size() / 2;
    }

    void read(std::size_t frames, std::vector<float>& stereo) override
    {
        const std::size_t first = 2 * static_cast<std::size_t>(framesSoFar);
        const std::size_t last = std::min(first + 2 * frames, samples.size());
        stereo.assign(samples.data() + first, samples.data() + last);
        framesSoFar = last / 2;
    }

    double fractionRead() const override
    {
        return static_cast<double>(framesSoFar) / static_cast<double>(stated);
    }

    std::string sha256() override { return {}; }

private:
    std::vector<float> samples;
};

using Blocks = std::vector<std::vector<float>>;

void append(Blocks& all, const Blocks& more)
{
    all.resize(more.size());
    for (std::size_t i = 0; i < more.size(); ++i)
        all[i].insert(all[i].end(), more[i].begin(), more[i].end());
}

struct MemorySink : StemSink
{
    void write(const Blocks& tracks) override { append(written, tracks); }

    Blocks written;
};

struct Recorder : SeparationObserver
{
    void observeSong(std::span<const float> stereo) override
    {
        song.insert(song.end(), stereo.begin(), stereo.end());
    }
    void observeStems(const Blocks& more) override { append(stems, more); }
    void observeTracks(const Blocks& more) override { append(tracks, more); }

    std::vector<float> song;
    Blocks stems;
    Blocks tracks;
};

class SeparationTest : public testing::Test
{
protected:
    SeparationTest()
    {
        std::mt19937 generator(1);
        noise = smoothNoise(2 * songFrames, generator);
    }

    SeparationResult separate(const std::shared_ptr<Model>& model,
                              const std::vector<SeparationObserver*>& observers)
    {
        MemorySong song(noise);
        const Quality quality = qualityNamed("normal");
        const std::vector<Track> tracks{stemTracks(StemSet().set(5)).front(), karaokeTrack()};
        return Separation(model, song, {tracks, quality}, sink, observers).run([](double, double) {});
    }

    static std::shared_ptr<Model> loaded(const char* name)
    {
        auto model = std::make_shared<Model>(readModel(std::filesystem::path(TONWERK_TEST_MODEL_DIR) / name),
                                             name, "", 0);
        model->log().take(); // providers that are not there
        return model;
    }

    std::vector<float> noise;
    MemorySink sink;
};

TEST_F(SeparationTest, ObserversSeeTheWholeSongItsStemsAndWhatIsWritten)
{
    const auto model = loaded("gains.onnx");
    LibraryLog::add(&model->log(), TONWERK_LOG_WARNING, "be\r\ncareful.");
    Recorder first;
    Recorder second;
    const SeparationResult result = separate(model, {&first, &second});
    EXPECT_EQ(result.frames, songFrames);
    EXPECT_THAT(result.log, testing::ElementsAre("be careful"));
    EXPECT_TRUE(first.song == noise);
    ASSERT_EQ(first.stems.size(), stemNames.size());
    EXPECT_EQ(first.stems.front().size(), noise.size());
    ASSERT_EQ(sink.written.size(), 2U);
    EXPECT_TRUE(sink.written.front() == first.stems.at(5));
    EXPECT_TRUE(first.tracks == sink.written);
    EXPECT_TRUE(second.song == first.song && second.stems == first.stems && second.tracks == first.tracks);
}

TEST_F(SeparationTest, ARunThatFailsEndsTheSongInItsMiddleWithItsReason)
{
    noise.at(800000) = 1e6F; // beyond what that model takes; the run before it is good
    const auto model = loaded("fail_on_request.onnx");
    try
    {
        separate(model, {});
        FAIL() << "the song went on with silence";
    }
    catch (const Failure& failure)
    {
        using testing::EndsWith, testing::HasSubstr, testing::Not;
        EXPECT_THAT(failure.what(),
                    testing::AllOf(HasSubstr("failed at 0:06 or soon after: "), HasSubstr("Reshape"),
                                   EndsWith("."), Not(EndsWith("..")), Not(EndsWith(" ."))));
    }
    ASSERT_FALSE(sink.written.empty());
    EXPECT_LT(sink.written.front().size(), noise.size() / 2);
    noise.at(800000) = 0.0F;
    EXPECT_EQ(separate(model, {}).frames, songFrames) << "the model serves the next song";
}

} // namespace
