#include "ygetopt.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

using yovotest::Args;

namespace {

char options[] = "ab:c";

void restart()
{
    yovo::optind = 1;
    yovo::opterr = 1;
    yovo::optarg = nullptr;
}

} // namespace

TEST(YGetopt, StartsAtOneWithComplaintsOn)
{
    EXPECT_EQ(yovo::optind, 1);
    EXPECT_EQ(yovo::opterr, 1);
    EXPECT_EQ(yovo::optarg, nullptr);
}

TEST(YGetopt, GroupedFlagsAndArgumentsInBothForms)
{
    restart();
    Args args {"prog", "-ac", "-bvalue", "-b", "next", "file"};
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), 'a');
    EXPECT_EQ(yovo::optarg, nullptr);
    EXPECT_EQ(yovo::optind, 1);
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), 'c');
    EXPECT_EQ(yovo::optind, 2);
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), 'b');
    EXPECT_STREQ(yovo::optarg, "value");
    EXPECT_EQ(yovo::optind, 3);
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), 'b');
    EXPECT_STREQ(yovo::optarg, "next");
    EXPECT_EQ(yovo::optind, 5);
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), -1);
    EXPECT_EQ(yovo::optind, 5);
}

TEST(YGetopt, DoubleDashEndsAndIsConsumed)
{
    restart();
    Args args {"prog", "-a", "--", "-c"};
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), 'a');
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), -1);
    EXPECT_EQ(yovo::optind, 3);
}

TEST(YGetopt, LoneDashAndNonOptionsEnd)
{
    restart();
    Args dash {"prog", "-"};
    EXPECT_EQ(yovo::getopt(dash.argc(), dash.argv(), options), -1);
    EXPECT_EQ(yovo::optind, 1);
    Args word {"prog", "word", "-a"};
    EXPECT_EQ(yovo::getopt(word.argc(), word.argv(), options), -1);
    EXPECT_EQ(yovo::optind, 1);
    Args none {"prog"};
    EXPECT_EQ(yovo::getopt(none.argc(), none.argv(), options), -1);
}

TEST(YGetopt, UnknownOptionComplainsAndReturnsQuestionMark)
{
    restart();
    Args args {"prog", "-xa", "-:"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), '?');
    EXPECT_EQ(yovo::optind, 1);
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), 'a');
    EXPECT_EQ(yovo::optind, 2);
    // A colon is never an option, although the option string holds one.
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), '?');
    EXPECT_EQ(yovo::optind, 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "prog: illegal option -- x\nprog: illegal option -- :\n");
}

TEST(YGetopt, MissingArgumentComplainsAndReturnsQuestionMark)
{
    restart();
    Args args {"prog", "-ab"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), 'a');
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), '?');
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "prog: option requires an argument -- b\n");
    EXPECT_EQ(yovo::optind, 2);
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), -1);
}

TEST(YGetopt, ComplaintsOffAreSilent)
{
    restart();
    yovo::opterr = 0;
    Args args {"prog", "-z", "-b"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), '?');
    EXPECT_EQ(yovo::getopt(args.argc(), args.argv(), options), '?');
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
