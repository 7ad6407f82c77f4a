// SPDX-License-Identifier: MIT
#include "boundary/ForeignRuntime.h"

#include <stdexcept>

#include <dlfcn.h>

ForeignRuntime openForeignRuntime()
{
    void* handle = dlopen("libonnxruntime.so.1", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        throw std::runtime_error(dlerror());
    const auto entry = reinterpret_cast<const OrtApiBase* (*)()>(dlsym(handle, "OrtGetApiBase"));
    Dl_info info{};
    dladdr(reinterpret_cast<const void*>(entry), &info);
    return {entry(), info.dli_fname};
}
