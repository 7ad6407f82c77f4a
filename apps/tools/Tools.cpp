// SPDX-License-Identifier: MIT
#include "tools/Tools.h"

#include <string>

#include <CLI/CLI.hpp>

#include "system/Failure.h"
#include "system/Interrupts.h"
#include "system/Text.h"
#include "tools/Doctor.h"
#include "tools/ModelCheck.h"
#include "tools/Scramble.h"

namespace tonwerk::app
{

namespace
{

constexpr int good = 0;
constexpr int bad = 1;

/// A command line that begins with the name of a tool.
class ToolOptions
{
public:
    ToolOptions(const std::string& name, const std::string& description)
        : tool(name), app(description, "tonwerk-separate " + name)
    {
        app.set_help_flag("-h,--help", "Print this text and exit");
        app.allow_windows_style_options(false); // a path may begin with a slash
        app.option_defaults()->take_last();
    }

    CLI::Option* add(const std::string& name, std::string& value, const std::string& description)
    {
        return app.add_option(name, value, description)->type_name("");
    }

    /// Fills the values.
    /// \return false if the user asked for the help text, which is then printed
    bool read(const std::vector<std::string>& arguments)
    {
        try
        {
            // CLI11 wants the last first. The very first names the tool.
            std::vector<std::string> lastFirst(arguments.rbegin(), arguments.rend() - 1);
            app.parse(lastFirst);
            return true;
        }
        catch (const CLI::Success& request)
        {
            app.exit(request);
            return false;
        }
        catch (const CLI::ParseError& error)
        {
            throw UsageError(asReason(error.what()) + " (" + tool + " --help tells more).");
        }
    }

private:
    std::string tool;
    CLI::App app;
};

int doctorTool(const std::vector<std::string>& arguments)
{
    ToolOptions options("doctor",
                        "Looks at everything that a separation needs on this machine, and tells what is "
                        "wrong and what to do.\n\nExit codes: 0 all is well, 1 it is not.\n");
    if (!options.read(arguments))
        return good;
    return runDoctor() ? good : bad;
}

int checkModelTool(const std::vector<std::string>& arguments)
{
    ToolOptions options("check-model",
                        "Tells whether a network can be used as a separation model, what is wrong "
                        "with it, and how fast it is.\n\nExit codes: 0 it can, 1 it cannot.\n");
    std::string file;
    std::string key;
    options.add("FILE", file, "The network, an ONNX file")->required();
    options.add("--key", key, "Its scrambling key")->type_name("KEY");
    if (!options.read(arguments))
        return good;
    return checkModel(toPath(file), key) ? good : bad;
}

int scrambleTool(const std::vector<std::string>& arguments)
{
    ToolOptions options("scramble",
                        "Scrambles a model with a key, so that other programs do not open it. This is no "
                        "encryption.\nWith a scrambled model and its key it gives the plain one.\n");
    std::string model;
    std::string output;
    std::string key;
    options.add("MODEL", model, "The model, an ONNX file")->required();
    options.add("-o,--output", output, "The file to write")->required()->type_name("FILE");
    options.add("--key", key, "The key, any text")->required()->type_name("KEY");
    if (!options.read(arguments))
        return good;
    if (key.empty())
        throw UsageError("The key is empty: that would scramble nothing.");
    watchInterrupts(); // so that nothing unfinished is left behind
    scrambleModel(toPath(model), toPath(output), key);
    return good;
}

} // namespace

std::optional<int> runTool(const std::vector<std::string>& arguments)
{
    const std::string name = arguments.empty() ? "" : arguments.front();
    if (name == "doctor")
        return doctorTool(arguments);
    if (name == "check-model")
        return checkModelTool(arguments);
    if (name == "scramble")
        return scrambleTool(arguments);
    return std::nullopt;
}

} // namespace tonwerk::app
