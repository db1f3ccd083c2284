#include "platform/shell.h"
#include "platform/trace.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

std::string traced(int threshold, int level)
{
    set_trace_level(threshold);
    testing::internal::CaptureStdout();
    ds_trace(level, "fn", 42, "msg %d", 7);
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(Trace, ThresholdSelectsLevels)
{
    EXPECT_EQ(traced(1, 1), "\t [dsd] fn(42): msg 7\n");
    EXPECT_EQ(traced(1, 2), "\t [dsd] fn(42): msg 7\n");
    EXPECT_EQ(traced(2, 1), "");
    EXPECT_EQ(traced(2, 2), "\t [dsd] fn(42): msg 7\n");
    EXPECT_EQ(traced(3, 2), "");  // debug mode 0 and 1 silence everything
    EXPECT_EQ(traced(1, 0), "");  // level 0 is never printed
    EXPECT_EQ(traced(1, 3), "");
    set_trace_level(2);
}

TEST(Shell, QuotedValuesStayOneWordWithNoEffect)
{
    const char *payloads[] = {"a'b", "$(touch /tmp/x)", "`id`", "; id", "| id", "&& id", "a\nb", ""};
    for (const char *p : payloads) {
        std::string cmd = "test \"$(printf '%s' " + shell_quote(p) + ")\" = " + shell_quote(p);
        EXPECT_EQ(shell_run(cmd), 0) << p;
    }
    EXPECT_EQ(shell_quote("it's"), "'it'\\''s'");
    EXPECT_EQ(shell_run("exit 3"), 3);
}

}  // namespace
