// SPDX-License-Identifier: MIT
#include "tools/Doctor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "inference/ExecutionProviders.h"
#include "inference/ModelInterface.h"
#include "inference/ModelSession.h"
#include "separation/DefaultModel.h"
#include "separation/Model.h"
#include "separation/Runtime.h"
#include "system/Failure.h"
#include "system/Machine.h"
#include "system/Sha256.h"
#include "system/Text.h"
#include "tools/Findings.h"
#include "tools/LogLines.h"
#include "tools/SelfCheck.h"

namespace tonwerk::app
{

namespace
{

/// Rounding errors are a thousandth of this; a damaged library or runtime exceeds it by far.
constexpr double tolerance = 1e-4;

void addProgram(const Findings& findings)
{
    findings.add("program", "tonwerk-separate " TONWERK_VERSION ", " + quoted(programFile()));
    findings.add("library", quoted(libraryFile()));
    const std::string name = processorName();
    findings.add("processor", (name.empty() ? "of unknown name" : name) + ", " +
                                  std::to_string(std::thread::hardware_concurrency()) + " threads");
}

/// \return whether the runtime can be used
bool checkRuntime(Findings& findings)
{
    try
    {
        findings.add("runtime", loadRuntime());
        return true;
    }
    catch (const Failure& failure)
    {
        findings.addError(
            failure.what() +
            std::string(" Put the runtime that came with this program beside its library again. If it "
                        "is there, it lacks something itself: on Windows, the Microsoft Visual C++ "
                        "Redistributable (x64)."));
        return false;
    }
}

// The library tries the providers in order of preference and keeps the last one that accepts the model.
void addProviders(const Findings& findings)
{
    const std::vector<std::string> offered = Ort::GetAvailableProviders();
    std::string chosen = cpuProvider;
    for (const std::string& provider : providerPreference(""))
    {
        if (std::none_of(offered.begin(), offered.end(),
                         [&](const std::string& name) { return sameProvider(name, provider); }))
            continue;
        LogLines adapters;
        const std::string refusal = providerRefusal(provider);
        findings.add("provider", provider + ": " +
                                     (refusal.empty() ? "available" : "refused, " + runtimeReason(refusal)));
        for (const std::string& line : adapters.take())
            findings.add("adapter", line);
        if (refusal.empty() && !sameProvider(provider, cpuProvider))
            chosen = provider;
    }
    findings.add("runs on", chosen + (sameProvider(chosen, cpuProvider) ? "" : ", if it takes the model"));
}

void checkDefaultModel(Findings& findings, const Ort::Env& env, const std::filesystem::path& path,
                       const std::vector<char>& bytes)
{
    const std::string advice = "; tonwerk-separate check-model " + quoted(path) +
                               " tells more, and takes the key of a scrambled one.";
    try
    {
        const ModelSession made = makeModelSession(env, bytes.data(), bytes.size(), {});
        if (!checkInterface(*made.session).violations.empty())
            findings.addError("The default model breaks the contract" + advice);
    }
    catch (const Ort::Exception& failure)
    {
        findings.addError("The default model cannot be loaded: " + runtimeReason(failure) + advice);
    }
}

/// \param env null if there is no runtime
void checkModelFile(Findings& findings, const Ort::Env* env)
{
    try
    {
        const auto [path, remark] = defaultModel();
        if (!remark.empty())
            findings.add("note", remark);
        const std::vector<char> bytes = readModel(path);
        findings.add("model", quoted(path) + ", " + std::to_string(bytes.size()) + " bytes, SHA-256 " +
                                  sha256OfFile(path));
        if (env != nullptr)
            checkDefaultModel(findings, *env, path, bytes);
    }
    catch (const Failure& failure)
    {
        findings.addError(failure.what());
    }
}

std::string summary(const SelfCheckResult& result)
{
    char text[160]; // NOLINT(modernize-avoid-c-arrays): what snprintf fills
    std::snprintf(
        text, sizeof text,
        "stems right to %.1g, null test %.1f dBFS, real-time factor %.4f (%.0f s of sound, without a "
        "network's work)",
        result.stemError, 20.0 * std::log10(result.nullPeak), result.processingSeconds / result.audioSeconds,
        result.audioSeconds);
    return text;
}

/// The library's messages matter only if something is wrong.
void addSelfCheck(Findings& findings)
{
    std::vector<std::string> log;
    try
    {
        const SelfCheckResult result = runSelfCheck(log);
        findings.add("self-test", summary(result));
        if (result.stemError < tolerance && result.nullPeak < tolerance)
            return;
        findings.addError("The stems of the self-test are wrong: install the program and its libraries anew, "
                          "from one package.");
    }
    catch (const std::exception& failure)
    {
        findings.addError("The self-test cannot be run: " + runtimeReason(failure) + '.');
    }
    for (const std::string& line : log)
        findings.add("log", line);
}

} // namespace

bool runDoctor()
{
    Findings findings("problem", stdout);
    addProgram(findings);
    if (checkRuntime(findings))
    {
        {
            // We report what goes wrong ourselves.
            const Ort::Env env(ORT_LOGGING_LEVEL_FATAL, "");
            addProviders(findings);
            checkModelFile(findings, &env);
        }
        addSelfCheck(findings);
    }
    else
    {
        checkModelFile(findings, nullptr);
    }
    const bool well = findings.errors() == 0;
    findings.add("result", well ? "All is well." : findings.countText() + " to solve.");
    return well;
}

} // namespace tonwerk::app
