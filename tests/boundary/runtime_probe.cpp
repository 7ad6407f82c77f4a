// SPDX-License-Identifier: MIT
// Does one step after the other and tells what the library and the inference runtime said. The tests put it
// beside the library into folders with and without a runtime.
//
// usage: runtime_probe STEP...
//        load             loads a model that is none
//        context MODEL    builds a context, which lives until the end
//        separate         takes a stream through the context that was built first
//        foreign MODEL    loads a runtime under its maker's file name, as another plug-in would, and the
//        model
//                         on it
//        cd FOLDER        makes the folder the current directory
//        copy FROM TO     copies the one file into the other's place
//        unset VARIABLE   removes a variable from the environment

#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <tonwerk/TonwerkProc.h>

#include "boundary/ForeignRuntime.h"
#include "boundary/LoadedRuntime.h"

namespace
{

using Contexts = std::vector<std::shared_ptr<tonwerk::InferenceContext>>;

void tellState()
{
    std::cout << (isRuntimeLoaded() ? "a runtime is loaded\n" : "no runtime is loaded\n");
}

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::shared_ptr<tonwerk::InferenceContext> makeContext(const std::string& model)
{
    return std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{model.data(), model.size(), ""});
}

void tryLoading()
{
    try
    {
        makeContext("no model");
        std::cout << "taken\n";
    }
    catch (const std::runtime_error& failure)
    {
        std::cout << "std::runtime_error: " << failure.what() << '\n';
    }
    catch (const std::exception& failure)
    {
        std::cout << "refused by the runtime: " << failure.what() << '\n';
    }
}

void separate(const std::shared_ptr<tonwerk::InferenceContext>& context)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = 1;
    tonwerk::TonwerkProc processor(context, config);
    const auto stems = processor.process(std::vector<float>(std::size_t{2} * 10000, 0.5F), true);
    std::cout << (stems.at(0).at(5000) > 0.1F ? "separated\n" : "the stem is silent\n");
}

/// Keeps what it makes, as another plug-in would that lives beside us.
void loadForeignRuntime(const std::string& modelFile)
{
    const ForeignRuntime runtime = openForeignRuntime();
    Ort::InitApi(runtime.apiBase->GetApi(ORT_API_VERSION));
    const std::string model = readFile(modelFile);
    static const Ort::Env env(ORT_LOGGING_LEVEL_WARNING, "");
    static const Ort::Session session(env, model.data(), model.size(), Ort::SessionOptions());
    std::cout << "foreign runtime: " << runtime.location << '\n';
}

void take(std::deque<std::string>& arguments, Contexts& contexts)
{
    const auto next = [&]
    {
        if (arguments.empty())
            throw std::invalid_argument("an argument is missing");
        std::string argument = arguments.front();
        arguments.pop_front();
        return argument;
    };
    const std::string step = next();
    if (step == "load")
        tryLoading();
    else if (step == "context")
        contexts.push_back(makeContext(readFile(next())));
    else if (step == "separate")
        separate(contexts.at(0));
    else if (step == "foreign")
        loadForeignRuntime(next());
    else if (step == "cd")
        std::filesystem::current_path(next());
    else if (step == "unset")
        unsetVariable(next());
    else if (step == "copy")
    {
        const std::string from = next();
        const std::string to = next();
        std::filesystem::remove(to); // MinGW's library cannot overwrite
        std::filesystem::copy_file(from, to);
    }
    else
        throw std::invalid_argument("there is no step " + step);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        tellState();
        std::deque<std::string> arguments(argv + 1, argv + argc);
        Contexts contexts;
        while (!arguments.empty())
            take(arguments, contexts);
        tellState();
        std::cout << "end\n";
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cout << "probe: " << failure.what() << '\n';
        return 1;
    }
}
