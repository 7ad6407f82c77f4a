#include "pipeline/ShiftArray.h"

#include <gtest/gtest.h>

#include "support/LogCapture.h"

namespace
{

const std::string called = "VERB [shiftArray] shiftArray called with step: ";
const std::string cleared = "VERB [shiftArray] Shift step >= input size, filling with zeros";

} // namespace

TEST(ShiftArray, SamplesMoveLeftAndZerosFollow)
{
    FixedArray<1> samples{1, 2, 3, 4, 5};
    shiftArray(samples, 2); // the ranges overlap
    EXPECT_EQ(samples, (FixedArray<1>{3, 4, 5, 0, 0}));

    const LogCapture log;
    shiftArray(samples, 4);
    EXPECT_EQ(samples, (FixedArray<1>{0, 0, 0, 0, 0}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{called + "4, input dimension: 1, input length: 5"}));
}

TEST(ShiftArray, EveryRowMovesByItself)
{
    const LogCapture log;
    FixedArray<2> rows{{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};
    shiftArray(rows, 1);
    EXPECT_EQ(rows, (FixedArray<2>{{2, 3, 4, 0}, {6, 7, 8, 0}, {10, 11, 12, 0}}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{called + "1, input dimension: 2, input length: 4"}));
}

TEST(ShiftArray, StepZeroChangesNothing)
{
    FixedArray<1> samples{1, 2, 3};
    FixedArray<2> rows{{1, 2}, {3, 4}};
    shiftArray(samples, 0);
    shiftArray(rows, 0);
    EXPECT_EQ(samples, (FixedArray<1>{1, 2, 3}));
    EXPECT_EQ(rows, (FixedArray<2>{{1, 2}, {3, 4}}));
}

TEST(ShiftArray, AStepOfTheWholeLengthOrMoreClearsAndIsLogged)
{
    for (const std::size_t step : {3U, 4U, 1000U})
    {
        const LogCapture log;
        FixedArray<1> samples{1, 2, 3};
        FixedArray<2> rows{{1, 2, 3}, {4, 5, 6}};
        shiftArray(samples, step);
        shiftArray(rows, step);
        EXPECT_EQ(samples, (FixedArray<1>{0, 0, 0}));
        EXPECT_EQ(rows, (FixedArray<2>{{0, 0, 0}, {0, 0, 0}}));
        const std::string number = std::to_string(step);
        EXPECT_EQ(log.lines(), (std::vector<std::string>{
                                   called + number + ", input dimension: 1, input length: 3", cleared,
                                   called + number + ", input dimension: 2, input length: 3", cleared}));
    }
}
