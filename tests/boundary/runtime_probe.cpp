// SPDX-License-Identifier: MIT
// Loads a model that is none, and tells what the library and the inference runtime said to that. The tests
// put it beside the library into folders with and without a runtime.
//
// usage: runtime_probe                           loads it once
//        runtime_probe FOLDER                    makes the folder the current directory first
//        runtime_probe REPLACEMENT RUNTIME       copies the one file over the other and tries a second time

#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include <tonwerk/TonwerkProc.h>

#include "boundary/LoadedRuntime.h"

namespace
{

void tellState()
{
    std::cout << (isRuntimeLoaded() ? "a runtime is loaded\n" : "no runtime is loaded\n");
}

void tryLoading()
{
    try
    {
        const tonwerk::InferenceContext context(tonwerk::ModelData{"no model", 8, ""});
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

} // namespace

int main(int argc, char** argv)
{
    tellState();
    if (argc == 2)
        std::filesystem::current_path(argv[1]);
    tryLoading();
    if (argc == 3)
    {
        std::filesystem::copy_file(argv[1], argv[2], std::filesystem::copy_options::overwrite_existing);
        tryLoading();
    }
    tellState();
    std::cout << "end\n";
    return 0;
}
