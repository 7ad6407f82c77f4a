// SPDX-License-Identifier: MIT
#include "cli/CommandLine.h"

#include <charconv>
#include <map>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>

#include "audio/SongReader.h"
#include "separation/DefaultModel.h"
#include "separation/Quality.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

constexpr const char* description =
    "Separates songs into stems: vocals, drum, piano, acoustic_guitar, electric_guitar and bass,\n"
    "the residual that they miss of the song, and the mix that they add up to.\n";

constexpr const char* details =
    "Songs are WAV, FLAC, MP3 or OGG (Vorbis) files of 8 to 192 kHz, stereo or mono; or folders, which are\n"
    "searched for such files. A single - is standard input, interleaved stereo of 32-bit float samples;\n"
    "its song is called stdin.\n"
    "\n"
    "The stems are WAV files of the song's sample rate, channels and exact length: DIR/SONG/vocals.wav\n"
    "and so on, where SONG is the song's file name without its extension, with (2) and so on if songs\n"
    "have the same name. Older files of these names are replaced. While they are being written they lie\n"
    "in DIR/SONG/tonwerk-unfinished, and they can be played. DIR/SONG/receipt.json comes last; it tells\n"
    "what was measured.\n"
    "\n"
    "The default model is the one that the environment variable TONWERK_MODEL names, else\n"
    "tonwerk-standard.onnx beside the program or in the folder models beside the program's, else\n"
    "tonwerk-small.onnx.\n"
    "\n"
    "Other commands, each with a --help of its own (a song of such a name is ./doctor):\n"
    "  tonwerk-separate doctor       what a separation needs on this machine, and what to do if it lacks\n"
    "  tonwerk-separate check-model  whether a network can be used as a model, and how fast it is\n"
    "  tonwerk-separate scramble     makes a model that needs a key\n"
    "\n"
    "Exit codes: 0 done, 1 some songs failed and the others are done, 2 wrong usage, 130 interrupted.";

/// The options as CLI11 stores them.
struct RawOptions
{
    std::vector<std::string> songs;
    std::string outputFolder;
    std::string model;
    std::string key;
    std::vector<std::string> stems;
    std::string mix;
    SampleFormat format = SampleFormat::Float32;
    std::string inputFormat;
    std::string quality = defaultQuality;
    unsigned inputRate = 44100;
    unsigned jobs = 1;
    double memory = 0.0;
    std::string shard;
    std::string progress = "text";
    bool listModels = false;
    bool karaoke = false;
    bool report = false;
    bool project = false;
    bool raw = false;
    bool resume = false;
    bool fast = false;
    bool overwrite = false;
};

void declareMain(CLI::App& app, RawOptions& raw)
{
    app.add_option("SONG", raw.songs, "The songs to separate")
        // As many as there are. Where an option takes "extra" arguments, names in brackets are taken for
        // lists.
        ->expected(CLI::detail::expected_max_vector_size, CLI::detail::expected_max_vector_size)
        ->allow_extra_args(false)
        ->take_all()
        ->type_name("");
    app.add_option("-o,--output", raw.outputFolder, "Folder in which the songs' folders are made")
        ->type_name("DIR");
    app.add_option("--model", raw.model,
                   "The separation model, an ONNX file, or a folder of models, if it is not the default one")
        ->type_name("FILE");
    app.add_flag(
        "--list-models", raw.listModels,
        "Show the models of the folder that --model names, or those of the program, and separate nothing");
    app.add_option("--key", raw.key, "Scrambling key of the model")->type_name("KEY");
    app.add_option("--input-format", raw.inputFormat,
                   "raw: standard input holds samples, even if it looks like a file with a header")
        ->check(CLI::IsMember({"raw"}).description(""))
        ->type_name("raw");
    app.add_option("--input-rate", raw.inputRate, "Sample rate of standard input in Hz, if it is not 44100")
        ->check(CLI::Range(lowestSampleRate, highestSampleRate).description(""))
        ->type_name("HZ");
}

void declareOutput(CLI::App& app, RawOptions& raw)
{
    const std::map<std::string, SampleFormat> formats{
        {"float32", SampleFormat::Float32}, {"pcm24", SampleFormat::Pcm24}, {"pcm16", SampleFormat::Pcm16}};
    app.add_option("--stems", raw.stems, "Write only these stems, and ask the model for no others; or none")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->take_all()
        ->type_name("LIST");
    app.add_flag("--karaoke", raw.karaoke,
                 "Write karaoke.wav, the song without its vocals, and no stems but those of --stems");
    app.add_option("--mix", raw.mix,
                   "Also write practice_mix.wav, with levels as in vocals=-inf,piano=-6dB; what is not\n"
                   "named keeps its level")
        ->type_name("LEVELS");
    app.add_option("--format", raw.format,
                   "float32, pcm24 or pcm16. If one file would clip, all of the song are lowered alike")
        ->transform(CLI::CheckedTransformer(formats).description(""))
        ->type_name("FORMAT");
    app.add_option("--quality", raw.quality,
                   "smooth (default: no joins are heard), best (takes longest), normal (takes least, with\n"
                   "joins), or what live streams give: live or instant")
        ->type_name("NAME");
    app.add_flag("--raw", raw.raw,
                 "Write the stems of one song to standard output instead, as float samples of all\n"
                 "stems and channels frame by frame");
    app.add_flag("--report", raw.report, "Write a page to mix and play the stems: DIR/SONG/report.html");
    app.add_flag(
        "--project", raw.project,
        "Write sessions for recording programs with a track per stem: DIR/SONG/stems.dawproject, and\n"
        "stems.rpp for REAPER");
}

void declareBatch(CLI::App& app, RawOptions& raw)
{
    app.add_flag("--resume", raw.resume,
                 "Skip songs whose receipt says that they were separated by this model with these options");
    app.add_flag("--overwrite", raw.overwrite,
                 "Replace the stems of another song where they lie in the song's folder");
    app.add_flag(
           "--fast", raw.fast,
           "Do not wait until a song's files are on the disk: a crash of the machine may then leave empty\n"
           "or missing ones of songs that were done")
        ->take_last();
    app.add_option("--jobs", raw.jobs, "Songs to separate at once, each with a copy of the model in memory")
        ->check(CLI::Range(1U, 64U).description(""))
        ->type_name("N");
    app.add_option("--memory", raw.memory, "Start no more jobs than fit into so many GB")
        ->check(CLI::Range(0.001, 1e6).description(""))
        ->type_name("GB");
    app.add_option("--shard", raw.shard, "Separate only the i-th, i+n-th, ... of the songs, sorted by path")
        ->type_name("i/n");
    app.add_option("--progress", raw.progress, "text, or json for one JSON object per line on standard error")
        ->check(CLI::IsMember({"text", "json"}).description(""))
        ->type_name("HOW");
}

void declareOptions(CLI::App& app, RawOptions& raw)
{
    app.footer(details);
    app.set_version_flag("--version", "tonwerk-separate " TONWERK_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this text and exit");
    app.allow_windows_style_options(false); // a path may begin with a slash
    app.option_defaults()->take_last();
    declareMain(app, raw);
    declareOutput(app, raw);
    declareBatch(app, raw);
}

StemSet chosenStems(const RawOptions& raw)
{
    if (raw.stems == std::vector<std::string>{"none"})
        return {};
    if (!raw.stems.empty())
        return stemsNamed(raw.stems);
    return raw.karaoke ? StemSet() : StemSet().set();
}

std::vector<Track> chosenTracks(const RawOptions& raw, const StemSet& stems)
{
    std::vector<Track> tracks = stemTracks(stems);
    if (raw.karaoke)
        tracks.push_back(karaokeTrack());
    if (!raw.mix.empty())
        tracks.push_back(practiceTrack(raw.mix));
    if (tracks.empty())
        throw UsageError("There is nothing to write: --stems none wants --karaoke or --mix.");
    return tracks;
}

/// Reads "i/n".
void readShard(const std::string& text, Job& job)
{
    if (text.empty())
        return;
    const char* const end = text.data() + text.size();
    const auto [slash, failure] = std::from_chars(text.data(), end, job.shard);
    const bool good = failure == std::errc() && slash != end && *slash == '/';
    const auto [rest, failureAfter] = std::from_chars(good ? slash + 1 : end, end, job.shardCount);
    if (!good || failureAfter != std::errc() || rest != end || job.shard < 1 || job.shard > job.shardCount)
        throw UsageError("--shard cannot read \"" + text +
                         "\": it takes two numbers as in 2/3, for the second part of three.");
}

void checkTogether(const RawOptions& raw, const StemSet& stems)
{
    if (raw.raw && (!raw.outputFolder.empty() || raw.report || raw.project || raw.resume || raw.jobs > 1 ||
                    !raw.shard.empty() || raw.format != SampleFormat::Float32))
        throw UsageError("--raw writes float samples of one song to standard output: it goes with none of "
                         "--output, --format, --report, --project, --resume, --jobs and --shard.");
    if (!raw.raw && raw.outputFolder.empty())
        throw UsageError("--output is required (--help tells more).");
    if (raw.report && stems.none())
        throw UsageError("--report shows stems, but there are none to write.");
    if (raw.project && stems.none())
        throw UsageError("--project wants stems, but there are none to write.");
}

OutputSettings outputSettings(const RawOptions& raw, const StemSet& stems)
{
    return {stems, chosenTracks(raw, stems), raw.format, raw.report, raw.project, qualityNamed(raw.quality)};
}

CommandLine modelListing(const RawOptions& raw)
{
    CommandLine commandLine;
    commandLine.job.model = toPath(raw.model);
    commandLine.listModels = true;
    return commandLine;
}

CommandLine checked(const RawOptions& raw)
{
    if (raw.listModels)
        return modelListing(raw);
    if (raw.songs.empty())
        throw UsageError("SONG is required (--help tells more).");
    const StemSet stems = chosenStems(raw);
    checkTogether(raw, stems);
    Job job;
    job.inputs = raw.songs;
    job.outputFolder = toPath(raw.outputFolder);
    ChosenModel model = raw.model.empty() ? defaultModel() : namedModel(toPath(raw.model));
    job.model = std::move(model.path);
    job.modelRemark = std::move(model.remark);
    job.key = raw.key;
    job.output = outputSettings(raw, stems);
    job.inputRate = raw.inputRate;
    job.rawInput = !raw.inputFormat.empty();
    job.workers = raw.jobs;
    if (raw.memory > 0.0)
        job.memory = static_cast<std::uint64_t>(raw.memory * 1e9);
    readShard(raw.shard, job);
    job.raw = raw.raw;
    job.resume = raw.resume;
    job.lasting = !raw.fast;
    job.overwrite = raw.overwrite;
    return {std::move(job), false, raw.progress == "json"};
}

} // namespace

std::optional<CommandLine> readCommandLine(const std::vector<std::string>& arguments)
{
    CLI::App app(description, "tonwerk-separate");
    RawOptions raw;
    declareOptions(app, raw);
    try
    {
        std::vector<std::string> lastFirst(arguments.rbegin(), arguments.rend()); // as CLI11 wants them
        app.parse(lastFirst);
    }
    catch (const CLI::Success& request)
    {
        app.exit(request);
        return std::nullopt;
    }
    catch (const CLI::ParseError& error)
    {
        throw UsageError(asReason(error.what()) + " (--help tells more).");
    }
    return checked(raw);
}

} // namespace tonwerk::app
