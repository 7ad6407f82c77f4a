// SPDX-License-Identifier: MIT
// Bytes of networks from anywhere, through what looks into them before the runtime does.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/FuzzInput.h"
#include "inference/ExternalData.h"
#include "separation/ModelPassport.h"

// The input is the network.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view model(reinterpret_cast<const char*>(data), size);
    try
    {
        refuseExternalData(model.data(), model.size());
    }
    catch (const ExternalDataRefused&)
    {
        promise(model.find("\x01") != model.npos, "the mark of external data");
    }
    const tonwerk::app::ModelPassport passport(model);
    promise(passport.rows() >= 1 && passport.rows() <= tonwerk::app::ModelPassport::allRows,
            "rows of the window");
    for (const auto& [label, text] : passport.lines())
        promise(text.find('\n') == text.npos && text.find('\x1B') == text.npos, "one line of text");
    return 0;
}
