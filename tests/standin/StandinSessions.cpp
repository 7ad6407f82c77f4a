// SPDX-License-Identifier: MIT
#include <cstdint>

#include "StandinParts.h"

namespace
{

std::map<const OrtSession*, int> numbers;

std::string sessionName(const OrtSession* session)
{
    return std::to_string(numbers[session]);
}

OrtStatus* ORT_API_CALL createEnv(OrtLoggingLevel level, const char* id, OrtEnv** out) noexcept
{
    record("CreateEnv " + std::to_string(level) + " \"" + id + "\"");
    return unlessScripted("CreateEnv",
                          [&] { return made("environment", realApi().CreateEnv(level, id, out)); });
}

void ORT_API_CALL releaseEnv(OrtEnv* env) noexcept
{
    release("environment", env);
    realApi().ReleaseEnv(env);
}

OrtStatus* ORT_API_CALL createSession(const OrtEnv* env, const void* model, std::size_t size,
                                      const OrtSessionOptions* options, OrtSession** out) noexcept
{
    const int number = ++standin().sessionAttempts;
    record("CreateSession " + std::to_string(number));
    const auto create = [&]
    {
        OrtStatus* status = made("session", realApi().CreateSessionFromArray(env, model, size, options, out));
        if (status == nullptr)
            numbers[*out] = number;
        return status;
    };
    return unlessScripted("session" + std::to_string(number), create);
}

void ORT_API_CALL releaseSession(OrtSession* released) noexcept
{
    if (released != nullptr)
        record("ReleaseSession " + sessionName(released));
    release("session", released);
    realApi().ReleaseSession(released);
}

OrtStatus* ORT_API_CALL sessionGetInputCount(const OrtSession* asked, std::size_t* count) noexcept
{
    record("GetInputCount " + sessionName(asked));
    return unlessScripted("SessionGetInputCount",
                          [&] { return counted(realApi().SessionGetInputCount(asked, count)); });
}

OrtStatus* ORT_API_CALL sessionGetInputTypeInfo(const OrtSession* asked, std::size_t index,
                                                OrtTypeInfo** info) noexcept
{
    return unlessScripted("SessionGetInputTypeInfo",
                          [&] { return counted(realApi().SessionGetInputTypeInfo(asked, index, info)); });
}

OrtStatus* ORT_API_CALL sessionGetOutputTypeInfo(const OrtSession* asked, std::size_t index,
                                                 OrtTypeInfo** info) noexcept
{
    return unlessScripted("SessionGetOutputTypeInfo",
                          [&] { return counted(realApi().SessionGetOutputTypeInfo(asked, index, info)); });
}

OrtStatus* ORT_API_CALL createCpuMemoryInfo(OrtAllocatorType allocator, OrtMemType memory,
                                            OrtMemoryInfo** out) noexcept
{
    record("CreateCpuMemoryInfo " + std::to_string(allocator) + " " + std::to_string(memory));
    return unlessScripted("CreateCpuMemoryInfo",
                          [&] { return counted(realApi().CreateCpuMemoryInfo(allocator, memory, out)); });
}

OrtStatus* ORT_API_CALL createTensor(const OrtMemoryInfo* info, void* data, std::size_t bytes,
                                     const std::int64_t* shape, std::size_t rank,
                                     ONNXTensorElementDataType type, OrtValue** out) noexcept
{
    return counted(realApi().CreateTensorWithDataAsOrtValue(info, data, bytes, shape, rank, type, out));
}

OrtStatus* ORT_API_CALL createRunOptions(OrtRunOptions** out) noexcept
{
    return unlessScripted("CreateRunOptions", [&] { return counted(realApi().CreateRunOptions(out)); });
}

/// A flag as "=0" or "=1", another tensor by its extents.
std::string description(const OrtValue* value)
{
    OrtTensorTypeAndShapeInfo* info = nullptr;
    counted(realApi().GetTensorTypeAndShape(value, &info));
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    counted(realApi().GetTensorElementType(info, &type));
    std::size_t rank = 0;
    counted(realApi().GetDimensionsCount(info, &rank));
    std::vector<std::int64_t> shape(rank);
    counted(realApi().GetDimensions(info, shape.data(), rank));
    realApi().ReleaseTensorTypeAndShapeInfo(info);
    if (type == ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL)
    {
        void* flag = nullptr;
        counted(realApi().GetTensorMutableData(const_cast<OrtValue*>(value), &flag)); // only read
        return *static_cast<const bool*>(flag) ? "=1" : "=0";
    }
    std::string text = "[";
    for (const std::int64_t extent : shape)
        text.append(text.size() == 1 ? "" : "x").append(std::to_string(extent));
    return text + "]";
}

OrtStatus* ORT_API_CALL run(OrtSession* runner, const OrtRunOptions* options, const char* const* inputNames,
                            const OrtValue* const* inputs, std::size_t inputCount,
                            const char* const* outputNames, std::size_t outputCount,
                            OrtValue** outputs) noexcept
{
    std::string call = "Run " + sessionName(runner) + ":";
    for (std::size_t i = 0; i < inputCount; ++i)
        call += std::string(" ") + inputNames[i] + description(inputs[i]);
    call += " ->";
    for (std::size_t i = 0; i < outputCount; ++i)
        call += std::string(" ") + outputNames[i] + description(outputs[i]);
    record(call);
    const auto evaluate = [&]
    {
        return unlessScripted("Run",
                              [&]
                              {
                                  return counted(realApi().Run(runner, options, inputNames, inputs,
                                                               inputCount, outputNames, outputCount,
                                                               outputs));
                              });
    };
    return unlessScripted("run" + std::to_string(++standin().runAttempts), evaluate);
}

} // namespace

void patchSessions(OrtApi& table)
{
    table.CreateEnv = createEnv;
    table.ReleaseEnv = releaseEnv;
    table.CreateSessionFromArray = createSession;
    table.ReleaseSession = releaseSession;
    table.SessionGetInputCount = sessionGetInputCount;
    table.SessionGetInputTypeInfo = sessionGetInputTypeInfo;
    table.SessionGetOutputTypeInfo = sessionGetOutputTypeInfo;
    table.CreateCpuMemoryInfo = createCpuMemoryInfo;
    table.CreateTensorWithDataAsOrtValue = createTensor;
    table.CreateRunOptions = createRunOptions;
    table.Run = run;
}
