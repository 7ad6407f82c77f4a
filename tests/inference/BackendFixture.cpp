// SPDX-License-Identifier: MIT
#include "inference/BackendFixture.h"

#include <algorithm>

#include "inference/RuntimeLoader.h"

namespace
{

/// The stand-in lies beside this program, where the loader looks first.
Standin& loadedStandin()
{
    return *reinterpret_cast<const StandinBase*>(openRuntimeLibrary().apiBase)->standin;
}

} // namespace

const std::vector<std::string> BackendFixture::outputNames{"vocals_output",          "drum_output",
                                                           "piano_output",           "acoustic_guitar_output",
                                                           "electric_guitar_output", "bass_output"};

BackendFixture::BackendFixture() : standin(loadedStandin())
{
    standin = Standin{};
}

BackendFixture::~BackendFixture()
{
    for (const auto& [kind, count] : standin.alive)
        EXPECT_EQ(count, 0) << "of " << standin.created[kind] << " times " << kind;
}

std::shared_ptr<IInference> BackendFixture::load(const std::string& model,
                                                 const std::string& preferredProvider)
{
    const std::vector<char> bytes = readModel(model);
    return makeInferenceBackend(bytes.data(), bytes.size(), {}, outputNames, preferredProvider);
}

int BackendFixture::keptSession() const
{
    const std::string question = "GetInputCount ";
    for (const std::string& call : standin.calls)
        if (call.starts_with(question))
            return std::stoi(call.substr(question.size()));
    return 0;
}

std::vector<std::string> BackendFixture::sessionCalls() const
{
    const auto end = std::find_if(standin.calls.begin(), standin.calls.end(),
                                  [](const std::string& call) { return call.starts_with("GetInputCount"); });
    return {standin.calls.begin(), end};
}
