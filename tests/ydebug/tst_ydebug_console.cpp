// The console driven through a pipe: a helper program runs a console on its standard input,
// the test writes command lines, closes the input and reads the whole transcript.
#include "test_support.h"

#include <QProcess>

#include <gtest/gtest.h>

namespace {

const QByteArray prompt("\n(dbg)\n");
const QByteArray welcome("Welcome to dbg\n");

QByteArray transcriptOf(const QByteArray& input)
{
    QProcess process;
    process.start(yovotest::helperPath("ydebug_console_helper"), QStringList());
    if (!process.waitForStarted(10000))
        return "<not started>";
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return "<did not end>";
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return "<failed>";
    return process.readAllStandardOutput();
}

// The transcript of a session: the welcome, then a prompt before each line's output, and the
// prompt at which the input ended.
QByteArray session(std::initializer_list<QByteArray> outputs)
{
    QByteArray text = welcome;
    for (const QByteArray& output : outputs)
        text += prompt + output;
    return text + prompt;
}

} // namespace

TEST(YDebugConsole, PlainCallWithoutParenthesesOrArguments)
{
    EXPECT_EQ(transcriptOf("hello()\nhello\n"), session({"hello called\n", "hello called\n"}));
}

TEST(YDebugConsole, EmptyLinePromptsAgain)
{
    EXPECT_EQ(transcriptOf("\n\nhello()\n"), session({"", "", "hello called\n"}));
}

TEST(YDebugConsole, ResultsAreNumberedAndConverted)
{
    EXPECT_EQ(transcriptOf("add(2, 40)\nnegate(false)\ngreet( big   world )\nmix(a b,7,1)\n"),
        session({"$0 = (int) 42\n", "$1 = (bool) 1\n", "$2 = (QString) hello big world\n",
            "$3 = (QString) a b/7/yes\n"}));
}

TEST(YDebugConsole, RepeatedCallPrintsEachResult)
{
    EXPECT_EQ(transcriptOf("3:count()\n"), session({"$0 = (int) 1\n$1 = (int) 2\n$2 = (int) 3\n"}));
}

TEST(YDebugConsole, UnknownKeywordIsIgnoredAndTheCommandRunsOnce)
{
    EXPECT_EQ(transcriptOf("x:count()\n"), session({"ignoring unknown keyword x\n$0 = (int) 1\n"}));
}

TEST(YDebugConsole, EmptyKeywordIsPassedOver)
{
    EXPECT_EQ(transcriptOf(":count()\n"), session({"$0 = (int) 1\n"}));
}

TEST(YDebugConsole, RetvalShowsAPastResultAndRefusesAnUnknownIndex)
{
    EXPECT_EQ(transcriptOf("add(1,2)\nadd(3,4)\nretval(0)\nretval(99)\nretval(-1)\n"),
        session({"$0 = (int) 3\n", "$1 = (int) 7\n", "$0 = (int) 3\n", "no such return value\n",
            "no such return value\n"}));
}

TEST(YDebugConsole, UnsupportedReturnTypeIsKeptAsSuch)
{
    EXPECT_EQ(transcriptOf("ratio()\nretval(0)\n"),
        session({"$0 = (double) UNSUPPORTED RETURN VALUE (double)\n",
            "$0 = (double) UNSUPPORTED RETURN VALUE (double)\n"}));
}

TEST(YDebugConsole, UnknownMethodOffersAlternatives)
{
    EXPECT_EQ(transcriptOf("nosuch()\nne()\n"),
        session({"no such method: nosuch\n",
            "no such method: ne\nDid you mean one of the following?\nbool negate(bool value)\n"}));
}

TEST(YDebugConsole, AlternativesAreCaseSensitivePrefixesOfTheSignature)
{
    EXPECT_EQ(transcriptOf("Add()\nm()\n"),
        session({"no such method: Add\n",
            "no such method: m\nDid you mean one of the following?\n"
            "QString mix(QString text, int number, bool flag)\n"}));
}

TEST(YDebugConsole, WrongArgumentCountShowsTheSignature)
{
    EXPECT_EQ(transcriptOf("add(1)\nhello(1)\n"),
        session({"please use correct form: add(int,int)\n", "please use correct form: hello()\n"}));
}

TEST(YDebugConsole, PublicAndPrivateSlotsAreNotReachable)
{
    EXPECT_EQ(transcriptOf("exposed()\nhidden()\ndeleteLater()\n"),
        session({"no such method: exposed\n", "no such method: hidden\n",
            "no such method: deleteLater\n"}));
}

TEST(YDebugConsole, MoreThanThreeArgumentsOrOtherTypesAreNotSupported)
{
    EXPECT_EQ(transcriptOf("four(1,2,3,4)\nreal(1.5)\n"),
        session({"Error: input mode not supported (yet)\n",
            "Error: input mode not supported (yet)\n"}));
}

TEST(YDebugConsole, MoreThanTenArgumentsAreRefused)
{
    EXPECT_EQ(transcriptOf("eleven(1,2,3,4,5,6,7,8,9,10,11)\n"),
        session({"can't have more than 10 arguments for a method\n"}));
}

TEST(YDebugConsole, CallThatReachesAnIncompatibleMethodFails)
{
    // The protected pick(int) returns int; the call by name reaches the subclass's public
    // pick(int), which returns nothing.
    EXPECT_EQ(transcriptOf("pick(1)\n"), session({"Error: failed to execute method pick\n"}));
}

TEST(YDebugConsole, ThreadKeywordRunsTheCommandOnAThreadOfItsOwn)
{
    const QByteArray transcript = transcriptOf("thread:slow()\n");
    EXPECT_TRUE(transcript.startsWith(welcome + prompt)) << transcript.toStdString();
    EXPECT_TRUE(transcript.contains("slow on its own thread\n")) << transcript.toStdString();
    EXPECT_EQ(transcript.count(prompt), 2);
}

TEST(YDebugConsole, HelpListsTheProtectedSlots)
{
    EXPECT_EQ(transcriptOf("help()\n"),
        session({"Available methods:\n"
                 "void help()\n"
                 "void retval(int returnValueIndex)\n"
                 "int pick(int value)\n"
                 "void hello()\n"
                 "int add(int a, int b)\n"
                 "int count()\n"
                 "bool negate(bool value)\n"
                 "QString greet(QString name)\n"
                 "QString mix(QString text, int number, bool flag)\n"
                 "double ratio()\n"
                 "void four(int a, int b, int c, int d) <=== NOT SUPPORTED\n"
                 "void real(double value) <=== NOT SUPPORTED\n"
                 "void eleven(int a, int b, int c, int d, int e, int f, int g, int h, int i, "
                 "int j, int k) <=== NOT SUPPORTED\n"
                 "void slow()\n"
                 "\n"
                 "Also, each function can be prefixed by a modifier keyword, from the "
                 "following:\n"
                 "6:foo() ==> run foo() 6 times\n"
                 "thread:foo() ==> run foo() in a new thread\n"
                 "\n"}));
}

TEST(YDebugConsole, ArgumentsWithoutClosingParenthesisAndEmptyPartsDropped)
{
    EXPECT_EQ(transcriptOf("add(1,,2\nadd(, 5 ,, 6 ,)tail\n"),
        session({"$0 = (int) 3\n", "$1 = (int) 11\n"}));
}

TEST(YDebugConsole, ZeroRepetitionsRunNothing)
{
    EXPECT_EQ(transcriptOf("0:count()\ncount()\n"), session({"", "$0 = (int) 1\n"}));
}

TEST(YDebugConsole, LastLineWithoutNewlineStillRuns)
{
    EXPECT_EQ(transcriptOf("hello()"), session({"hello called\n"}));
}
