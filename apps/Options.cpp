#include "Options.h"

#include <vector>

#include <CLI/CLI.hpp>

#include "Failure.h"
#include "Text.h"

namespace tonwerk::app
{

namespace
{

constexpr const char* description =
    "Separates a song into stems: vocals, drum, piano, acoustic_guitar, electric_guitar and bass,\n"
    "the residual that they miss of the song, and the mix that they add up to.\n";

constexpr const char* details =
    "Songs are WAV, FLAC, MP3 or OGG (Vorbis) files of 44100 Hz, stereo or mono. A mono song is given\n"
    "to the model on both channels and comes back mono, as the mean of both. The stems are WAV files\n"
    "of 32-bit float samples, exactly as long as the song: DIR/SONG/vocals.wav and so on, where SONG\n"
    "is the song's file name without its extension. Older files of these names are replaced. While\n"
    "they are being written their names end in .part.\n"
    "\n"
    "The last line tells the real-time factor (time taken / length of the song) and the null test:\n"
    "the largest absolute value of six stems + residual - song, which is rounding noise.\n"
    "\n"
    "The report page opens in a browser from the disk, without a server or a network. It shows waveform\n"
    "and spectrogram of the song and of its stems, and plays the stem files that lie beside it in step,\n"
    "with mute, solo and volume for each; the key ? shows its keyboard commands.\n"
    "\n"
    "Exit codes: 0 done, 1 failed, 2 wrong usage, 130 interrupted.";

/// The options as CLI11 fills them in.
struct RawOptions
{
    std::string song;
    std::string outputFolder;
    std::string model;
    std::string key;
    std::vector<std::string> stems{stemNames.begin(), stemNames.end()};
    bool report = false;
};

void declareOptions(CLI::App& app, RawOptions& raw)
{
    app.footer(details);
    app.set_version_flag("--version", "tonwerk-separate " TONWERK_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this text and exit");
    app.allow_windows_style_options(false); // a path may begin with a slash
    app.option_defaults()->take_last();
    app.add_option("SONG", raw.song, "The song to separate")->required()->type_name("");
    app.add_option("-o,--output", raw.outputFolder, "Folder in which the song's folder is made")
        ->required()
        ->type_name("DIR");
    app.add_option("--model", raw.model, "The separation model, an ONNX file")->required()->type_name("FILE");
    app.add_option("--key", raw.key, "Scrambling key of the model")->type_name("KEY");
    app.add_option("--stems", raw.stems, "Write only these stems, and ask the model for no others")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->take_all()
        ->type_name("LIST");
    app.add_flag("--report", raw.report, "Write a page that shows and plays the stems: DIR/SONG/report.html");
}

} // namespace

std::optional<Options> readOptions(int argc, char** argv)
{
    CLI::App app(description, "tonwerk-separate");
    RawOptions raw;
    declareOptions(app, raw);
    try
    {
        app.parse(argc, app.ensure_utf8(argv));
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
    return Options{toPath(raw.song), toPath(raw.outputFolder), toPath(raw.model),
                   raw.key,          stemsNamed(raw.stems),    raw.report};
}

} // namespace tonwerk::app
