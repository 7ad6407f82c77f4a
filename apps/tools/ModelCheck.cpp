// SPDX-License-Identifier: MIT
#include "tools/ModelCheck.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "api/ModelScrambling.h"
#include "inference/ExecutionProviders.h"
#include "inference/ExternalData.h"
#include "inference/ModelInterface.h"
#include "inference/ModelSession.h"
#include "separation/Model.h"
#include "separation/ModelPassport.h"
#include "separation/Runtime.h"
#include "system/Text.h"
#include "tools/Findings.h"
#include "tools/RunChecks.h"

namespace tonwerk::app
{

namespace
{

/// One line without control characters, whatever the file says.
std::string printable(std::string text)
{
    constexpr std::size_t longest = 80;
    text.resize(std::min(text.size(), longest));
    std::replace_if(
        text.begin(), text.end(), [](char character) { return character < ' ' || character > '~'; }, '?');
    return text;
}

/// What the network's file says of itself.
void addMetadata(const Findings& findings, const Ort::Session& session)
{
    const Ort::AllocatorWithDefaultOptions allocator;
    const Ort::ModelMetadata metadata = session.GetModelMetadata();
    const std::string producer = metadata.GetProducerNameAllocated(allocator).get();
    if (!producer.empty())
        findings.add("producer", printable(producer));
}

/// Who made the network, and what it really gives.
void addPassport(const Findings& findings, std::string_view model)
{
    const ModelPassport passport(model);
    for (const auto& [label, text] : passport.lines())
        findings.add(label, text);
    if (!passport.exists())
        findings.addWarning(
            "It has no passport: the file does not say who made the network, under which licence, "
            "and which stems it really gives (tonwerk-convert passport writes one).");
}

/// Only a refusal of this model counts: the doctor tells of providers that refuse every model.
void addProviders(const Findings& findings, const ModelSession& made)
{
    for (const ModelSession::Refusal& refusal : made.refusals)
        if (providerRefusal(refusal.provider).empty())
            findings.add("note",
                         refusal.provider + " does not take it: " + runtimeReason(refusal.reason) + '.');
    const bool isLeftToCpu = !providerRefusal(made.provider).empty();
    findings.add("runs on", isLeftToCpu ? cpuProvider : made.provider);
}

/// \return null, with an error added, if the runtime cannot load the network
std::unique_ptr<Ort::Session> loadNetwork(Findings& findings, const Ort::Env& env, std::string_view model,
                                          bool hasKey)
{
    try
    {
        ModelSession made = makeModelSession(env, model.data(), model.size(), {});
        findings.addPass("The runtime loads it.");
        addMetadata(findings, *made.session);
        addPassport(findings, model);
        addProviders(findings, made);
        return std::move(made.session);
    }
    catch (const ExternalDataRefused& refusal)
    {
        findings.addError(asReason(refusal.what()) + ".");
        return nullptr;
    }
    catch (const Ort::Exception& failure)
    {
        findings.addError(
            "The runtime cannot load it: " + runtimeReason(failure) + ". " +
            (hasKey ? "Is the key the right one?" : "If it is scrambled, --key takes its key."));
        return nullptr;
    }
}

void checkContract(Findings& findings, Ort::Session& session)
{
    const InterfaceFaults faults = checkInterface(session);
    for (const std::string& sentence : faults.violations)
        findings.addError(sentence);
    for (const std::string& sentence : faults.warnings)
        findings.addWarning(sentence);
    if (!faults.violations.empty())
        return findings.add("note", "It was not run, because its inputs or outputs are wrong.");
    findings.addPass("Its inputs and outputs have the names, types and shapes of the contract.");
    RunChecks(session, findings).makeAll();
}

bool checkPlain(const std::filesystem::path& file, std::string_view model, bool hasKey)
{
    Findings findings("violation");
    findings.add("file", quoted(file) + ", " + std::to_string(model.size()) + " bytes");
    findings.add("runtime", loadRuntime());
    // We report what goes wrong ourselves.
    const Ort::Env env(ORT_LOGGING_LEVEL_FATAL, "");
    if (const auto session = loadNetwork(findings, env, model, hasKey))
        checkContract(findings, *session);
    const bool conforms = findings.errors() == 0;
    findings.add("result", conforms ? "It keeps to the contract."
                                    : "It breaks the contract: " + findings.countText() + '.');
    return conforms;
}

} // namespace

bool checkModel(const std::filesystem::path& file, const std::string& key)
{
    const std::vector<char> bytes = readModel(file);
    if (key.empty())
        return checkPlain(file, {bytes.data(), bytes.size()}, false);
    const ScrambledCopy plain(bytes.data(), bytes.size(), key);
    return checkPlain(file, {static_cast<const char*>(plain.data()), plain.size()}, true);
}

} // namespace tonwerk::app
