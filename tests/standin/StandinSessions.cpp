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
    if (OrtStatus* status = scripted("CreateEnv"))
        return status;
    return made("environment", realApi().CreateEnv(level, id, out));
}

void ORT_API_CALL releaseEnv(OrtEnv* env) noexcept
{
    if (env != nullptr)
        record("ReleaseEnv");
    release("environment", env);
    realApi().ReleaseEnv(env);
}

OrtStatus* ORT_API_CALL createSession(const OrtEnv* env, const void* model, std::size_t size,
                                      const OrtSessionOptions* options, OrtSession** out) noexcept
{
    const int number = ++standin().sessionAttempts;
    record("CreateSession " + std::to_string(number));
    if (standin().failingSessions.contains(number))
        return failure("session " + std::to_string(number));
    OrtStatus* status = made("session", realApi().CreateSessionFromArray(env, model, size, options, out));
    if (status == nullptr)
        numbers[*out] = number;
    return status;
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
    if (OrtStatus* status = scripted("SessionGetInputCount"))
        return status;
    return counted(realApi().SessionGetInputCount(asked, count));
}

OrtStatus* ORT_API_CALL sessionGetInputTypeInfo(const OrtSession* asked, std::size_t index,
                                                OrtTypeInfo** info) noexcept
{
    record("GetInputTypeInfo " + sessionName(asked) + " " + std::to_string(index));
    if (OrtStatus* status = scripted("SessionGetInputTypeInfo"))
        return status;
    return made("type info", realApi().SessionGetInputTypeInfo(asked, index, info));
}

OrtStatus* ORT_API_CALL sessionGetOutputTypeInfo(const OrtSession* asked, std::size_t index,
                                                 OrtTypeInfo** info) noexcept
{
    record("GetOutputTypeInfo " + sessionName(asked) + " " + std::to_string(index));
    if (OrtStatus* status = scripted("SessionGetOutputTypeInfo"))
        return status;
    return made("type info", realApi().SessionGetOutputTypeInfo(asked, index, info));
}

void ORT_API_CALL releaseTypeInfo(OrtTypeInfo* info) noexcept
{
    release("type info", info);
    realApi().ReleaseTypeInfo(info);
}

/// The runtime's default allocator, with what it hands out (names of inputs and outputs) counted.
OrtAllocator* realAllocator = nullptr;

void* ORT_API_CALL allocate(OrtAllocator* /*allocator*/, std::size_t size)
{
    create("allocation");
    return realAllocator->Alloc(realAllocator, size);
}

void ORT_API_CALL deallocate(OrtAllocator* /*allocator*/, void* memory)
{
    release("allocation", memory);
    realAllocator->Free(realAllocator, memory);
}

const OrtMemoryInfo* ORT_API_CALL describeAllocator(const OrtAllocator* /*allocator*/)
{
    return realAllocator->Info(realAllocator);
}

OrtStatus* ORT_API_CALL getAllocator(OrtAllocator** allocator) noexcept
{
    static OrtAllocator counting{ORT_API_VERSION, allocate, deallocate, describeAllocator, allocate};
    *allocator = &counting;
    return counted(realApi().GetAllocatorWithDefaultOptions(&realAllocator));
}

OrtStatus* ORT_API_CALL createCpuMemoryInfo(OrtAllocatorType allocator, OrtMemType memory,
                                            OrtMemoryInfo** out) noexcept
{
    record("CreateCpuMemoryInfo " + std::to_string(allocator) + " " + std::to_string(memory));
    if (OrtStatus* status = scripted("CreateCpuMemoryInfo"))
        return status;
    return made("memory info", realApi().CreateCpuMemoryInfo(allocator, memory, out));
}

void ORT_API_CALL releaseMemoryInfo(OrtMemoryInfo* info) noexcept
{
    release("memory info", info);
    realApi().ReleaseMemoryInfo(info);
}

OrtStatus* ORT_API_CALL createTensor(const OrtMemoryInfo* info, void* data, std::size_t bytes,
                                     const std::int64_t* shape, std::size_t rank,
                                     ONNXTensorElementDataType type, OrtValue** out) noexcept
{
    return made("value", realApi().CreateTensorWithDataAsOrtValue(info, data, bytes, shape, rank, type, out));
}

void ORT_API_CALL releaseValue(OrtValue* value) noexcept
{
    release("value", value);
    realApi().ReleaseValue(value);
}

OrtStatus* ORT_API_CALL createRunOptions(OrtRunOptions** out) noexcept
{
    if (OrtStatus* status = scripted("CreateRunOptions"))
        return status;
    return made("run options", realApi().CreateRunOptions(out));
}

void ORT_API_CALL releaseRunOptions(OrtRunOptions* options) noexcept
{
    release("run options", options);
    realApi().ReleaseRunOptions(options);
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
    if (OrtStatus* status = scripted("Run"))
        return status;
    return counted(
        realApi().Run(runner, options, inputNames, inputs, inputCount, outputNames, outputCount, outputs));
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
    table.ReleaseTypeInfo = releaseTypeInfo;
    table.GetAllocatorWithDefaultOptions = getAllocator;
    table.CreateCpuMemoryInfo = createCpuMemoryInfo;
    table.ReleaseMemoryInfo = releaseMemoryInfo;
    table.CreateTensorWithDataAsOrtValue = createTensor;
    table.ReleaseValue = releaseValue;
    table.CreateRunOptions = createRunOptions;
    table.ReleaseRunOptions = releaseRunOptions;
    table.Run = run;
}
