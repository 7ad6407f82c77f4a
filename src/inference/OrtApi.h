// SPDX-License-Identifier: MIT
/// \file OrtApi.h
/// The one door to ONNX Runtime's headers, with what they need on each platform.
///
/// The function table behind the wrapper classes is set by hand (ORT_API_MANUAL_INIT), because the runtime is
/// loaded on first use: call Ort::InitApi before anything else of namespace Ort.
#ifndef TONWERK_INFERENCE_ORTAPI_H
#define TONWERK_INFERENCE_ORTAPI_H

#ifdef _WIN32
// The annotation macros have to exist before the runtime's header looks for them, and MinGW spells the
// calling convention with two underscores only.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#ifndef _stdcall
#define _stdcall __stdcall
#endif
#endif

#include <onnxruntime_cxx_api.h>

#endif // TONWERK_INFERENCE_ORTAPI_H
