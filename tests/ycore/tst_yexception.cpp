#include "yexception.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(YException, WhatPrefixesFileAndLineOnce)
{
    YException e("x", "a.c", 7);
    const char* first = e.what();
    EXPECT_STREQ("a.c:7 x", first);
    const char* second = e.what();
    EXPECT_EQ(first, second);
    EXPECT_STREQ("a.c:7 x", second);
}

TEST(YException, LineZeroHidesFileButGetFileKeepsIt)
{
    YException e("x", "a.c", 0);
    EXPECT_STREQ("x", e.what());
    EXPECT_STREQ("a.c", e.getFile());
    EXPECT_EQ(0u, e.getLine());
}

TEST(YException, NullFileWithLinePrintsEmptyFile)
{
    YException e("x", nullptr, 7);
    EXPECT_STREQ(":7 x", e.what());
    EXPECT_EQ(nullptr, e.getFile());
    EXPECT_EQ(7u, e.getLine());
}

TEST(YException, ChainedMessageCarriesCausePositionAsTextOnly)
{
    YException cause("old", "a.c", 7);
    YException e(cause, "new");
    EXPECT_STREQ("chained exception: new, caused by: a.c:7 old", e.what());
    EXPECT_EQ(0u, e.getLine());
    EXPECT_EQ(nullptr, e.getFile());
}

TEST(YException, ChainedWithPositionPrefixesOnlyItsOwn)
{
    YException cause("old");
    YException e(cause, QStringLiteral("new"), "b.c", 9);
    EXPECT_STREQ("b.c:9 chained exception: new, caused by: old", e.what());
}

TEST(YException, ChainsNestByRepeatedSubstitution)
{
    YException c("c");
    YException b(c, "b");
    YException a(b, "a");
    EXPECT_STREQ("chained exception: a, caused by: chained exception: b, caused by: c", a.what());
}

TEST(YException, PercentInMessageIsNotSubstituted)
{
    YException cause("50%2 done");
    YException e(cause, "copy %2");
    EXPECT_STREQ("chained exception: copy %2, caused by: 50%2 done", e.what());
}

TEST(YException, CopyAfterWhatKeepsPrefixedTextWithoutPrefixingAgain)
{
    YException e("x", "a.c", 7);
    e.what();
    YException copy(e);
    EXPECT_STREQ("a.c:7 x", copy.what());
    EXPECT_STREQ("a.c:7 x", copy.what());
}

TEST(YException, CopyBeforeWhatPrefixesOnce)
{
    YException e(QStringLiteral("x"), "a.c", 7);
    YException copy(e);
    EXPECT_STREQ("a.c:7 x", copy.what());
    EXPECT_STREQ("a.c:7 x", e.what());
}

TEST(YException, CharacterOutsideEightBitsDoesNotSurviveWhat)
{
    YException e(QString::fromUtf8("price \xe2\x82\xac 5"));
    EXPECT_STREQ("price ? 5", e.what());
}

TEST(YException, EmptyMessageWithoutPositionIsEmptyEachTime)
{
    YException e("");
    EXPECT_STREQ("", e.what());
    EXPECT_STREQ("", e.what());
}

TEST(YException, IsCaughtAsStdException)
{
    try {
        Y_THROW("boom");
    } catch (const std::exception& e) {
        EXPECT_NE(nullptr, std::strstr(e.what(), "tst_yexception.cpp:"));
        EXPECT_NE(nullptr, std::strstr(e.what(), " boom"));
        return;
    }
    FAIL() << "not thrown";
}
