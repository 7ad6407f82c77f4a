// SPDX-License-Identifier: MIT
#include "separation/DivertedLogMonitor.h"

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/ScratchFolder.h"
#include "system/DivertedOutput.h"
#include "system/Files.h"

namespace
{

using tonwerk::app::DivertedLogMonitor;

TEST(DivertedLogMonitor, EachThreadTakesItsOwnMessagesOnce)
{
    const ScratchFolder folder;
    const auto path = folder.path() / "log";
    std::FILE* const writing = tonwerk::app::openFile(path, tonwerk::app::FileMode::Write);
    std::FILE* const reading = tonwerk::app::openFile(path, tonwerk::app::FileMode::Read);
    DivertedLogMonitor monitor({stdout, reading});
    const unsigned mine = tonwerk::app::threadNumber();
    const auto write = [writing](const std::string& text)
    {
        std::fputs(text.c_str(), writing);
        std::fflush(writing);
    };
    const std::string time = "2026-11-21 08:41:17.602 ";

    write(time + "WARN  [" + std::to_string(mine + 1) + "] [f@2] somebody else's\n");
    write(time + "ERROR [" + std::to_string(mine) + "] [A::b@12] went\r\nwrong.\n" + time + "WARN  [");
    auto messages = monitor.take();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].isFailure);
    EXPECT_EQ(messages[0].text, "went wrong");
    write(std::to_string(mine) + "] [f@2] careful\n");
    messages = monitor.take();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_FALSE(messages[0].isFailure);
    EXPECT_TRUE(monitor.take().empty());
    std::fclose(writing);
    std::fclose(reading);
}

} // namespace
