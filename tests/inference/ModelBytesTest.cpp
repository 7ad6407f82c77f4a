#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "inference/BackendFixture.h"

namespace
{

struct Bytes
{
    const char* name;
    const void* data;
    std::size_t size;
};

class ModelBytes : public BackendFixture
{
};

TEST_F(ModelBytes, WhatIsNoModelIsRefusedWithTheRuntimesExceptionAndOneLine)
{
    const std::vector<char> model = readModel("gains.onnx");
    const std::string text = "this is a letter to the editor and not a network";
    const std::vector<char> zeros(4096, 0);
    std::vector<char> damaged = model;
    for (std::size_t i = 0; i < damaged.size(); ++i)
        damaged[i] = static_cast<char>(damaged[i] ^ 0x5A);

    for (const Bytes& bytes :
         {Bytes{"text", text.data(), text.size()}, Bytes{"zeros", zeros.data(), zeros.size()},
          Bytes{"nothing", model.data(), 0}, Bytes{"null", nullptr, 0},
          Bytes{"half a model", model.data(), model.size() / 2},
          Bytes{"all but one byte", model.data(), model.size() - 1}, Bytes{"one byte", model.data(), 1},
          Bytes{"wrong key", damaged.data(), damaged.size()}})
    {
        log.clear();
        std::string reason;
        try
        {
            makeInferenceBackend(bytes.data, bytes.size, {}, {}, "");
            ADD_FAILURE() << bytes.name << " was taken for a model";
        }
        catch (const Ort::Exception& failure)
        {
            reason = failure.what();
        }
        EXPECT_FALSE(reason.empty()) << bytes.name;
        EXPECT_EQ(log.lines(plog::error), std::vector<std::string>{constructorLine(
                                              "ERROR", "Failed to initialize ONNX session: " + reason)})
            << bytes.name;
    }
    EXPECT_NE(makeInferenceBackend(model.data(), model.size(), {}, {}, ""), nullptr)
        << "the runtime is still well";
}

} // namespace
