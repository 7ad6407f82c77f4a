// SPDX-License-Identifier: MIT
#include "report/ReportPage.h"

#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace
{

using tonwerk::app::reportPage;

TEST(ReportPage, HoldsItsDataWhateverTheTextsSay)
{
    const std::string name =
        "</script><!--<script>\xE2\x80\xA8 \xF0\x9F\x8E\xB5 \"\\ /* scripts */ {\"report\": \"data\"}";
    const std::string page = reportPage({{"name", name}});
    const std::string opening = "<script id=\"data\" type=\"application/json\">";
    const std::size_t start = page.find(opening) + opening.size();
    // A browser ends the element at the next "</script", and skips that after "<!--<script".
    const std::string block = page.substr(start, page.find('<', start) - start);
    EXPECT_EQ(page.substr(start + block.size(), 9), "</script>");
    EXPECT_EQ(nlohmann::json::parse(block).at("name"), name);
}

TEST(ReportPage, BytesThatAreNoTextDoNotStopIt)
{
    const std::string page = reportPage({{"name", "a\xFF\xC3z"}});
    EXPECT_NE(page.find("{\"name\":\"a\\ufffd\\ufffdz\"}"), std::string::npos);
}

} // namespace
