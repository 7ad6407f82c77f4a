#include "RuntimeProviders.h"

#include "Platform.h"
#include "inference/OrtApi.h"

namespace tonwerk::app
{

std::vector<std::string> offeredProviders()
{
    using GetApiBase = const OrtApiBase* (*)();
    const auto getApiBase = reinterpret_cast<GetApiBase>(platform::runtimeEntryPoint());
    const OrtApi* const api = getApiBase != nullptr ? getApiBase()->GetApi(ORT_API_VERSION) : nullptr;
    char** names = nullptr;
    int count = 0;
    if (api == nullptr)
        return {};
    OrtStatus* const failure = api->GetAvailableProviders(&names, &count);
    if (failure != nullptr)
    {
        api->ReleaseStatus(failure);
        return {};
    }
    std::vector<std::string> providers(names, names + count);
    OrtStatus* const ignored = api->ReleaseAvailableProviders(names, count);
    if (ignored != nullptr)
        api->ReleaseStatus(ignored);
    return providers;
}

} // namespace tonwerk::app
