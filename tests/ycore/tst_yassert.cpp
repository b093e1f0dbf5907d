#include "yassert.h"

#include <gtest/gtest.h>

namespace {

class CountingHandler : public YAssertionFailedHandler
{
public:
    void onAssertionFailed() override { ++calls; }
    int calls = 0;
};

// Registers another handler from inside the callback: the list's mutex is re-entrant.
class ReentrantHandler : public YAssertionFailedHandler
{
public:
    void onAssertionFailed() override
    {
        if (!registered) {
            registered = true;
            YAssert::registerAssertionFailedHandler(&late);
        }
    }
    bool registered = false;
    CountingHandler late;
};

} // namespace

TEST(YAssert, HandleWithoutHandlersReturnsAtOnce)
{
    YAssert::handleFailedAssertion();
    SUCCEED();
}

TEST(YAssert, HandlerRegisteredTwiceIsCalledTwice)
{
    CountingHandler handler;
    YAssert::registerAssertionFailedHandler(&handler);
    YAssert::registerAssertionFailedHandler(&handler);
    YAssert::handleFailedAssertion();
    EXPECT_EQ(2, handler.calls);
}

TEST(YAssert, HandlerMayRegisterWhileCalled)
{
    ReentrantHandler handler;
    YAssert::registerAssertionFailedHandler(&handler);
    YAssert::handleFailedAssertion();
    EXPECT_TRUE(handler.registered);
    EXPECT_EQ(1, handler.late.calls);
}

TEST(YAssert, WaitForDebuggerFlagIsOnlyStored)
{
    EXPECT_FALSE(YAssert::shouldWaitForDebugger());
    YAssert::setWaitForDebugger(true);
    EXPECT_TRUE(YAssert::shouldWaitForDebugger());
    YAssert::setWaitForDebugger(false);
    EXPECT_FALSE(YAssert::shouldWaitForDebugger());
}

TEST(YAssertDeathTest, FailedAssertionWritesRecordThenAborts)
{
    EXPECT_EXIT(failedAssertion("a.c", 7, "(x > 0)", "bad x", YDebug::STDERR),
        testing::KilledBySignal(SIGABRT),
        "^\\[[0-9.]+ [0-9:]+ SYSTEM\\] \\[ a\\.c : 7 \\] \\(x > 0\\) \r\nbad x \n \r\n$");
}

TEST(YAssertDeathTest, FailedAssertionWithoutMessageWritesEmptyTexts)
{
    EXPECT_EXIT(failedAssertion("a.c", 7, "(x > 0)", nullptr, YDebug::STDERR),
        testing::KilledBySignal(SIGABRT),
        "^\\[[0-9.]+ [0-9:]+ SYSTEM\\] \\[ a\\.c : 7 \\] \\(x > 0\\) \r\n  \r\n$");
}

TEST(YAssertDeathTest, MacroPassesConditionAndPosition)
{
    int x = 0;
    EXPECT_EXIT(Y_ASSERT_X(x > 0, "x must be positive"), testing::KilledBySignal(SIGABRT),
        "SYSTEM\\] \\[ .*tst_yassert\\.cpp : [0-9]+ \\] \\(x > 0\\) \r\nx must be "
        "positive \n \r\n$");
}
