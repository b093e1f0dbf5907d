#include "ip_verifier.h"

#include "ydebug.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <string>
#include <thread>
#include <vector>

namespace {

unsigned long address(const char* text)
{
    return static_cast<unsigned long>(inet_addr(text));
}

// The STDOUT log of the action at level NOTICE, with the time stamps masked.
template<class Action> std::string stdoutLog(Action action)
{
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::NOTICE);
    testing::internal::CaptureStdout();
    action();
    const std::string text = testing::internal::GetCapturedStdout();
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::WARNING);
    return text;
}

bool contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(YIpVerifier, LoopbackIsAlwaysAllowed)
{
    YIpVerifier verifier;
    EXPECT_TRUE(verifier.verify(address("127.1.2.3")));
    EXPECT_TRUE(verifier.verify(address("127.0.0.1")));
    EXPECT_FALSE(verifier.verify(address("10.0.0.1")));
    EXPECT_EQ(QStringLiteral("no IPs are allowed to communicate with this machine!"),
        verifier.getConfigString());
}

TEST(YIpVerifier, LoneStarIsAJoker)
{
    YIpVerifier verifier(QStringList() << " * ");
    EXPECT_TRUE(verifier.verify(address("8.8.8.8")));
    EXPECT_EQ(QStringLiteral("joker (*) specified - ALL IPs ARE ALLOWED to connect"),
        verifier.getConfigString());
    YIpVerifier quad(QStringList() << "*.*.*.*");
    EXPECT_TRUE(quad.verify(address("1.2.3.4")));
    YIpVerifier allowAll(QStringList(), true);
    EXPECT_TRUE(allowAll.verify(address("1.2.3.4")));
}

TEST(YIpVerifier, RealMaskOverridesTheJokerAtConstruction)
{
    std::unique_ptr<YIpVerifier> verifier;
    const std::string log = stdoutLog([&] {
        verifier.reset(new YIpVerifier(QStringList() << "*"
                                                     << "10.0.0.1"));
    });
    EXPECT_TRUE(contains(log, " NOTICE] joker (*) was IGNORED in allowed IPs \r\n")) << log;
    EXPECT_TRUE(verifier->verify(address("10.0.0.1")));
    EXPECT_TRUE(verifier->verify(address("127.0.0.1")));
    EXPECT_FALSE(verifier->verify(address("10.0.0.2")));
    EXPECT_EQ(QStringLiteral("the following IPs/masks are allowed to communicate with this "
                             "machine:10.0.0.1"),
        verifier->getConfigString());
}

TEST(YIpVerifier, WildOctets)
{
    YIpVerifier verifier(QStringList() << "10.1.*.*");
    EXPECT_TRUE(verifier.verify(address("10.1.200.3")));
    EXPECT_FALSE(verifier.verify(address("10.2.0.1")));
}

TEST(YIpVerifier, PrefixLength)
{
    YIpVerifier verifier(QStringList() << "10.0.0.0/8");
    EXPECT_TRUE(verifier.verify(address("10.255.0.1")));
    EXPECT_FALSE(verifier.verify(address("11.0.0.1")));
    YIpVerifier every(QStringList() << "10.0.0.1/0");
    EXPECT_TRUE(every.verify(address("200.1.2.3")));
    YIpVerifier narrow(QStringList() << "192.168.4.0/23");
    EXPECT_TRUE(narrow.verify(address("192.168.5.9")));
    EXPECT_FALSE(narrow.verify(address("192.168.6.1")));
}

TEST(YIpVerifier, OctetWritten255IsWild)
{
    YIpVerifier verifier(QStringList() << "10.0.0.255");
    EXPECT_TRUE(verifier.verify(address("10.0.0.7")));
    EXPECT_FALSE(verifier.verify(address("10.0.1.7")));
    // A 255 anywhere shortens the prefix by one octet, whichever octet it stands in: the mask
    // then covers the whole network of its first three octets.
    YIpVerifier inner(QStringList() << "10.255.3.4");
    EXPECT_TRUE(inner.verify(address("10.255.3.99")));
    EXPECT_FALSE(inner.verify(address("10.254.3.4")));
    // Digits 255 inside a longer octet turn into a text that is no address at all.
    YIpVerifier digits(QStringList() << "10.0.1255.1");
    EXPECT_FALSE(digits.verify(address("10.0.1255.1")));
    // All four wild is the broadcast address once the stars are put back, which never matches.
    YIpVerifier broadcast(QStringList() << "255.255.255.255");
    EXPECT_FALSE(broadcast.verify(address("1.2.3.4")));
}

TEST(YIpVerifier, GrammarRefusesAnIncompleteQuad)
{
    std::unique_ptr<YIpVerifier> verifier;
    const std::string log = stdoutLog([&] {
        verifier.reset(new YIpVerifier(QStringList() << "1.2.3"
                                                     << "1.2.3.4"));
    });
    EXPECT_TRUE(
        contains(log, " WARNING] Error in parsing \"1.2.3\" for allowed IPs. Mask skipped. \r\n"))
        << log;
    EXPECT_EQ(QStringLiteral("the following IPs/masks are allowed to communicate with this "
                             "machine:1.2.3.4"),
        verifier->getConfigString());
    for (const char* bad : {"1.2.3.4/33", "1.*.3.4", "a.b.c.d", "1.2.3.4 5", "*.1.1.1"}) {
        YIpVerifier refused(QStringList() << bad);
        EXPECT_EQ(QStringLiteral("no IPs are allowed to communicate with this machine!"),
            refused.getConfigString())
            << bad;
    }
}

TEST(YIpVerifier, AddedMaskLeavesACachedRefusal)
{
    YIpVerifier verifier(QStringList() << "10.0.0.1");
    EXPECT_FALSE(verifier.verify(address("10.0.0.2")));
    verifier.addMask("10.0.0.2");
    EXPECT_FALSE(verifier.verify(address("10.0.0.2")));
    EXPECT_TRUE(verifier.verify(address("10.0.0.3")) == false);
    verifier.addMasks(QStringList() << "10.0.0.3");
    EXPECT_FALSE(verifier.verify(address("10.0.0.3")));
    EXPECT_TRUE(verifier.verify(address("10.0.0.4")) == false);
    verifier.resetMasks(QStringList() << "10.0.0.2"
                                      << "10.0.0.3");
    EXPECT_TRUE(verifier.verify(address("10.0.0.2")));
    EXPECT_TRUE(verifier.verify(address("10.0.0.3")));
    EXPECT_FALSE(verifier.verify(address("10.0.0.1")));
}

TEST(YIpVerifier, JokerAddedLaterStandsAndClearKeepsIt)
{
    YIpVerifier verifier(QStringList() << "10.0.0.1");
    verifier.addMask("*");
    EXPECT_TRUE(verifier.verify(address("9.9.9.9")));
    verifier.clear();
    EXPECT_TRUE(verifier.verify(address("9.9.9.9")));
    EXPECT_EQ(QStringLiteral("joker (*) specified - ALL IPs ARE ALLOWED to connect"),
        verifier.getConfigString());
}

TEST(YIpVerifier, ClearEmptiesMasksAndCache)
{
    YIpVerifier verifier(QStringList() << "10.0.0.1"
                                       << "10.0.0.2");
    EXPECT_TRUE(verifier.verify(address("10.0.0.1")));
    verifier.clear();
    EXPECT_FALSE(verifier.verify(address("10.0.0.1")));
    EXPECT_EQ(QStringLiteral("no IPs are allowed to communicate with this machine!"),
        verifier.getConfigString());
}

TEST(YIpVerifier, MasksJoinWithCommas)
{
    YIpVerifier verifier(QStringList() << " 10.0.0.1 "
                                       << "10.1.*.*"
                                       << "10.2.0.0/16");
    EXPECT_EQ(QStringLiteral("the following IPs/masks are allowed to communicate with this "
                             "machine:10.0.0.1,10.1.*.*,10.2.0.0/16"),
        verifier.getConfigString());
}

TEST(YIpVerifier, ManyThreadsAskAtOnce)
{
    YIpVerifier verifier(QStringList() << "10.1.*.*"
                                       << "192.168.0.0/16");
    std::vector<std::thread> threads;
    std::vector<int> wrong(8, 0);
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&verifier, &wrong, t] {
            for (int i = 0; i < 2000; ++i) {
                const unsigned long allowed
                    = address("10.1.0.0") | (unsigned long)((i % 250) << 24);
                const unsigned long refused
                    = address("10.2.0.0") | (unsigned long)((i % 250) << 24);
                if (!verifier.verify(allowed) || verifier.verify(refused))
                    ++wrong[size_t(t)];
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::vector<int>(8, 0), wrong);
}
