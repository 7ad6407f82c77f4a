// SPDX-License-Identifier: MIT
// The functions that an LV2 host calls, around a Plugin. No exception leaves them.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>

#include "Plugin.h"

namespace
{

constexpr const char* pluginUri = "urn:tonwerk:stems";
constexpr const char* modelUri = "urn:tonwerk:stems#model";

/// What the host brings for us, as far as it does.
struct Features
{
    explicit Features(const LV2_Feature* const* features)
    {
        for (; features != nullptr && *features != nullptr; ++features)
        {
            const std::string uri = (*features)->URI;
            void* data = (*features)->data;
            if (uri == LV2_URID__map)
                map = static_cast<LV2_URID_Map*>(data);
            else if (uri == LV2_LOG__log)
                log = static_cast<LV2_Log_Log*>(data);
            else if (uri == LV2_OPTIONS__options)
                options = static_cast<const LV2_Options_Option*>(data);
            else if (uri == LV2_STATE__mapPath)
                paths = static_cast<LV2_State_Map_Path*>(data);
            else if (uri == LV2_STATE__freePath)
                freePath = static_cast<LV2_State_Free_Path*>(data);
        }
    }

    LV2_URID urid(const char* uri) const { return map->map(map->handle, uri); }

    LV2_URID_Map* map = nullptr;
    LV2_Log_Log* log = nullptr;
    const LV2_Options_Option* options = nullptr;
    LV2_State_Map_Path* paths = nullptr;
    LV2_State_Free_Path* freePath = nullptr;
};

/// What the host says of its blocks under this name; 0 if it does not.
std::uint32_t blockLength(const Features& features, const char* name)
{
    if (features.map == nullptr || features.options == nullptr)
        return 0;
    const LV2_URID wanted = features.urid(name);
    const LV2_URID integer = features.urid(LV2_ATOM__Int);
    for (const LV2_Options_Option* option = features.options; option->key != 0; ++option)
        if (option->key == wanted && option->type == integer)
            return static_cast<std::uint32_t>(std::max(0, *static_cast<const int32_t*>(option->value)));
    return 0;
}

/// The usual length rather than the longest, which some hosts put far too high: longer blocks are taken too.
std::uint32_t usualBlock(const Features& features)
{
    const std::uint32_t nominal = blockLength(features, LV2_BUF_SIZE__nominalBlockLength);
    return nominal != 0 ? nominal : blockLength(features, LV2_BUF_SIZE__maxBlockLength);
}

struct Instance
{
    Instance(double sampleRate, const Features& features)
        : plugin(sampleRate, usualBlock(features)), map(features.map), log(features.log)
    {
    }

    void tell(const char* text) const
    {
        if (log != nullptr && map != nullptr)
            log->printf(log->handle, map->map(map->handle, LV2_LOG__Error), "tonwerk: %s\n", text);
        else
            std::fprintf(stderr, "tonwerk: %s\n", text);
    }

    tonwerk::lv2::Plugin plugin;
    LV2_URID_Map* map;
    LV2_Log_Log* log;
};

tonwerk::lv2::Plugin& pluginOf(LV2_Handle handle)
{
    return static_cast<Instance*>(handle)->plugin;
}

LV2_Handle instantiate(const LV2_Descriptor* /*descriptor*/, double sampleRate, const char* bundle,
                       const LV2_Feature* const* features)
{
    std::unique_ptr<Instance> instance;
    try
    {
        instance = std::make_unique<Instance>(sampleRate, Features(features));
        instance->plugin.load(tonwerk::lv2::defaultModel(bundle));
        return instance.release();
    }
    catch (const std::exception& failure)
    {
        if (instance)
            instance->tell(failure.what());
        return nullptr;
    }
}

void connectPort(LV2_Handle handle, std::uint32_t port, void* data)
{
    if (port < tonwerk::lv2::ports::count)
        pluginOf(handle).connect(port, static_cast<float*>(data));
}

void activate(LV2_Handle handle)
{
    pluginOf(handle).activate();
}

void run(LV2_Handle handle, std::uint32_t frames)
{
    pluginOf(handle).run(frames);
}

void cleanup(LV2_Handle handle)
{
    delete static_cast<Instance*>(handle);
}

/// The model's place; the host keeps the switches itself, as it does all ports.
LV2_State_Status save(LV2_Handle handle, LV2_State_Store_Function store, LV2_State_Handle state,
                      std::uint32_t /*flags*/, const LV2_Feature* const* given)
{
    const Features features(given);
    const auto* instance = static_cast<Instance*>(handle);
    if (instance->map == nullptr || features.paths == nullptr)
        return LV2_STATE_ERR_NO_FEATURE;
    const auto urid = [&](const char* uri) { return instance->map->map(instance->map->handle, uri); };
    char* path = features.paths->abstract_path(features.paths->handle, instance->plugin.model().c_str());
    const LV2_State_Status status =
        store(state, urid(modelUri), path, std::strlen(path) + 1, urid(LV2_ATOM__Path), LV2_STATE_IS_POD);
    if (features.freePath != nullptr)
        features.freePath->free_path(features.freePath->handle, path);
    else
        std::free(path);
    return status;
}

LV2_State_Status restore(LV2_Handle handle, LV2_State_Retrieve_Function retrieve, LV2_State_Handle state,
                         std::uint32_t /*flags*/, const LV2_Feature* const* given)
{
    const Features features(given);
    auto* instance = static_cast<Instance*>(handle);
    if (instance->map == nullptr || features.paths == nullptr)
        return LV2_STATE_ERR_NO_FEATURE;
    std::size_t size = 0;
    std::uint32_t type = 0;
    std::uint32_t flags = 0;
    const void* stored =
        retrieve(state, instance->map->map(instance->map->handle, modelUri), &size, &type, &flags);
    if (stored == nullptr)
        return LV2_STATE_SUCCESS; // of a version that kept none
    char* path = features.paths->absolute_path(features.paths->handle, static_cast<const char*>(stored));
    const std::filesystem::path model = path;
    if (features.freePath != nullptr)
        features.freePath->free_path(features.freePath->handle, path);
    else
        std::free(path);
    try
    {
        if (model != instance->plugin.model())
            instance->plugin.load(model);
        return LV2_STATE_SUCCESS;
    }
    catch (const std::exception& failure)
    {
        instance->tell(failure.what());
        return LV2_STATE_ERR_UNKNOWN;
    }
}

const void* extensionData(const char* uri)
{
    static const LV2_State_Interface state{save, restore};
    return std::strcmp(uri, LV2_STATE__interface) == 0 ? &state : nullptr;
}

constexpr LV2_Descriptor descriptor{pluginUri, instantiate, connectPort, activate,
                                    run,       nullptr,     cleanup,     extensionData};

} // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    return index == 0 ? &descriptor : nullptr;
}
