// SPDX-License-Identifier: MIT
#include "pipeline/ShiftArray.h"

#include <gtest/gtest.h>

#include "support/LogCapture.h"

TEST(ShiftArray, EveryRowMovesLeftByItselfAndZerosFollow)
{
    struct Case
    {
        std::size_t step;
        FixedArray<2> rows;
        bool cleared;
    };
    for (const Case& shifted :
         {Case{0, {{1, 2, 3}, {4, 5, 6}}, false}, Case{1, {{2, 3, 0}, {5, 6, 0}}, false},
          Case{2, {{3, 0, 0}, {6, 0, 0}}, false}, Case{3, {{0, 0, 0}, {0, 0, 0}}, true},
          Case{1000, {{0, 0, 0}, {0, 0, 0}}, true}})
    {
        const LogCapture log;
        FixedArray<1> samples{1, 2, 3};
        FixedArray<2> rows{{1, 2, 3}, {4, 5, 6}};
        shiftArray(samples, shifted.step);
        shiftArray(rows, shifted.step);
        EXPECT_TRUE(std::equal(samples.begin(), samples.end(), shifted.rows.begin())) << shifted.step;
        EXPECT_EQ(rows, shifted.rows) << shifted.step;

        std::vector<std::string> lines;
        for (const char* rank : {"1", "2"})
        {
            lines.push_back("VERB [shiftArray] shiftArray called with step: " + std::to_string(shifted.step) +
                            ", input dimension: " + rank + ", input length: 3");
            if (shifted.cleared)
                lines.emplace_back("VERB [shiftArray] Shift step >= input size, filling with zeros");
        }
        EXPECT_EQ(log.lines(), lines);
    }
}
