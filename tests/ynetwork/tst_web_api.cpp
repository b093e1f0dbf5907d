#include "http_test_servers.h"
// Through the umbrella header, which must carry the HTTP classes.
#include "yovolib.h"

#include <gtest/gtest.h>

#include <QDomElement>
#include <QRegularExpression>

#include <openssl/evp.h>
#include <openssl/hmac.h>

using yovotest::fixturePort;

namespace {

const char* const KEY_NAME = "test-key";
const char* const KEY = "s3cret key of the tests";

class YWebApiTest : public ::testing::Test
{
protected:
    void SetUp() override { yovotest::ensureCoreApplication(); }
};

// Opens the protected steps to the tests.
class WebApiProbe : public YWebApi
{
public:
    using YWebApi::typeToUrl;
    using YWebApi::YWebApi;
};

QByteArray referenceHmac(const QByteArray& key, const QByteArray& text)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.constData(), key.size(),
        reinterpret_cast<const unsigned char*>(text.constData()), static_cast<size_t>(text.size()),
        digest, &length);
    return QByteArray(reinterpret_cast<const char*>(digest), static_cast<int>(length)).toHex();
}

QString field(YWebApiResponse& response, const char* name)
{
    return response.documentElement().firstChildElement(QLatin1String(name)).text();
}

// The request headers as the server saw them, in order.
QList<QPair<QString, QString>> headers(YWebApiResponse& response)
{
    QList<QPair<QString, QString>> result;
    QDomElement header = response.documentElement()
                             .firstChildElement(QStringLiteral("headers"))
                             .firstChildElement(QStringLiteral("header"));
    for (; !header.isNull(); header = header.nextSiblingElement(QStringLiteral("header")))
        result.append(qMakePair(header.attribute(QStringLiteral("name")), header.text()));
    return result;
}

QStringList headerValues(YWebApiResponse& response, const QString& name)
{
    QStringList values;
    for (const auto& header : headers(response)) {
        if (header.first.compare(name, Qt::CaseInsensitive) == 0)
            values.append(header.second);
    }
    return values;
}

QString hostPort()
{
    return QStringLiteral("127.0.0.1:%1").arg(fixturePort("python"));
}

} // namespace

TEST(YWebApiSignature, SignedTextAndDigestMatchAnIndependentHmac)
{
    const QByteArray key("my secret");
    const QByteArray expectedText("host:8080:/YovoServer/Api/monitorGetRules:"
                                  "Yovo_Http_Client/1.10:Mon, 02 Jan 2012 10:20:30 GMT");
    const QByteArray signature = YWebApi::getSignature(key, QStringLiteral("host:8080"),
        QStringLiteral("/YovoServer/Api/monitorGetRules"),
        QStringLiteral("Mon, 02 Jan 2012 10:20:30 GMT"));
    EXPECT_EQ(signature, referenceHmac(key, expectedText));
    EXPECT_EQ(signature.size(), 64);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^[0-9a-f]{64}$"))
                    .match(QString::fromLatin1(signature))
                    .hasMatch());
}

TEST(YWebApiSignature, KeysLongerThanABlockAndEmptyKeysAreHandled)
{
    // Keys up to a block long are used as they stand, like in any keyed hash.
    const QByteArray block(64, 'k');
    const QByteArray text("a:b:Yovo_Http_Client/1.10:d");
    EXPECT_EQ(YWebApi::getSignature(block, "a", "b", "d"), referenceHmac(block, text));
    EXPECT_EQ(YWebApi::getSignature(QByteArray(), "a", "b", "d"), referenceHmac("", text));
    // A longer key is replaced by the text of its digest, which peers also do.
    const QByteArray longKey(100, 'L');
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(longKey.constData(), static_cast<size_t>(longKey.size()), digest, &length,
        EVP_sha256(), nullptr);
    const QByteArray hexKey
        = QByteArray(reinterpret_cast<const char*>(digest), static_cast<int>(length)).toHex();
    EXPECT_EQ(YWebApi::getSignature(longKey, "a", "b", "d"), referenceHmac(hexKey, text));
}

TEST(YWebApiStatic, UmbrellaHeaderCarriesTheHttpClasses)
{
    YSimpleURL url;
    YHttpRequest http;
    YHttpReply reply(nullptr);
    YWebApiResponse response("<a/>");
    EXPECT_EQ(url.getHeaders().size(), 0);
    EXPECT_EQ(response.documentElement().tagName(), QStringLiteral("a"));
}

TEST(YWebApiStatic, UserAgentAndRoutes)
{
    EXPECT_EQ(YWebApi::getUserAgent(), QByteArray("Yovo_Http_Client/1.10"));
    WebApiProbe api(QStringLiteral("host"), QString(), QString());
    const char* const routes[]
        = {"Api/applicationGetStatus", "Api/applicationSynchronize", "Api/monitorGetRules",
            "Api/monitorSetRule", "Api/monitorRemoveRules", "Api/sendNotification",
            "Api/pagecacheSaveRule", "Api/pagecacheSaveApplicationRule", "Api/pagecacheRulesList",
            "Api/pagecacheDeleteRulesByApplicationId", "Api/emailSend", "Api/configurationExport"};
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(api.typeToUrl(static_cast<YWebApi::type>(i)), QLatin1String(routes[i])) << i;
    EXPECT_EQ(
        api.typeToUrl(YWebApi::CONFIGURATION_EXPORT), QStringLiteral("Api/configurationExport"));
}

TEST(YWebApiStatic, TypeTwelveThrows)
{
    WebApiProbe api(QStringLiteral("host"), QString(), QString());
    try {
        api.typeToUrl(static_cast<YWebApi::type>(12));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QByteArray(e.what()).endsWith(" YWebApi::type type out of bounds")) << e.what();
    }
    EXPECT_THROW(api.typeToUrl(static_cast<YWebApi::type>(15)), YException);
    EXPECT_THROW(api.get(static_cast<YWebApi::type>(12), {}), YException);
}

TEST(YWebApiResponseTest, ParsesXmlAndFindsTheErrorMessage)
{
    YWebApiResponse response("<r><a/><errorMessage>first</errorMessage>"
                             "<errorMessage>second</errorMessage></r>");
    EXPECT_EQ(response.getStatus(), 0);
    response.setStatus(418);
    EXPECT_EQ(response.getStatus(), 418);
    EXPECT_EQ(response.getErrorMessage(), QStringLiteral("first"));
    YWebApiResponse none("<r><a>x</a></r>");
    EXPECT_EQ(none.getErrorMessage(), QString());
    YWebApiResponse broken("<r><unclosed>");
    EXPECT_EQ(broken.getErrorMessage(), QString());
    YWebApiResponse notXml("not xml at all");
    EXPECT_TRUE(notXml.documentElement().isNull());
    EXPECT_EQ(notXml.getErrorMessage(), QString());
    YWebApiResponse empty {QByteArray()};
    EXPECT_EQ(empty.getErrorMessage(), QString());
}

TEST_F(YWebApiTest, EveryRouteIsReachedWithGetAndPost)
{
    YWebApi api(hostPort(), QString(), QString());
    for (int i = 0; i < 12; ++i) {
        const auto type = static_cast<YWebApi::type>(i);
        YWebApiResponse got = api.get(type, {});
        ASSERT_EQ(got.getStatus(), 200) << i << " " << got.getErrorMessage().toStdString();
        EXPECT_EQ(field(got, "method"), QStringLiteral("GET"));
        YWebApiResponse posted = api.post(type, {});
        ASSERT_EQ(posted.getStatus(), 200) << i;
        EXPECT_EQ(field(posted, "method"), QStringLiteral("POST"));
        EXPECT_EQ(field(got, "route"), field(posted, "route"));
        EXPECT_EQ(field(posted, "target"), QStringLiteral("/YovoServer/") + field(posted, "route"));
    }
}

TEST_F(YWebApiTest, UnsignedCallHasNoSignatureHeader)
{
    YWebApi api(hostPort(), QString(), QStringLiteral("ignored key"));
    YWebApiResponse response = api.post(YWebApi::MONITOR_GET_RULES, {});
    ASSERT_EQ(response.getStatus(), 200);
    EXPECT_TRUE(headerValues(response, QStringLiteral("X-Yovo-Signature")).isEmpty());
    EXPECT_EQ(field(response, "signature"), QStringLiteral("none"));
}

TEST_F(YWebApiTest, SignedCallHasOneSignatureThatTheServerAcceptsForItsDate)
{
    YWebApi api(hostPort(), QLatin1String(KEY_NAME), QLatin1String(KEY));
    for (int method = 0; method < 2; ++method) {
        YWebApiResponse response = method == 0 ? api.post(YWebApi::SEND_NOTIFICATION, {})
                                               : api.get(YWebApi::SEND_NOTIFICATION, {});
        ASSERT_EQ(response.getStatus(), 200) << response.getErrorMessage().toStdString();
        const QStringList signatures = headerValues(response, QStringLiteral("X-Yovo-Signature"));
        ASSERT_EQ(signatures.size(), 1);
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^test-key;[0-9a-f]{64}$"))
                        .match(signatures.first())
                        .hasMatch())
            << signatures.first().toStdString();
        // The server recomputed the signature from the "Date" header it received.
        EXPECT_EQ(field(response, "signature"), QStringLiteral("valid"));
        const QString date = field(response, "date");
        EXPECT_TRUE(QRegularExpression(
            QStringLiteral("^(Mon|Tue|Wed|Thu|Fri|Sat|Sun), \\d\\d "
                           "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) \\d{4} "
                           "\\d\\d:\\d\\d:\\d\\d GMT$"))
                        .match(date)
                        .hasMatch())
            << date.toStdString();
        const QByteArray expected = YWebApi::getSignature(
            QByteArray(KEY), hostPort(), QStringLiteral("/YovoServer/Api/sendNotification"), date);
        EXPECT_EQ(signatures.first(), QStringLiteral("test-key;") + QString::fromLatin1(expected));
    }
}

TEST_F(YWebApiTest, HeadersGoOutInTheirOrder)
{
    YWebApi api(hostPort(), QLatin1String(KEY_NAME), QLatin1String(KEY));
    YWebApiResponse response = api.post(YWebApi::EMAIL_SEND, {});
    ASSERT_EQ(response.getStatus(), 200);
    QStringList names;
    for (const auto& header : headers(response))
        names.append(header.first.toLower());
    const QStringList ours = {QStringLiteral("date"), QStringLiteral("user-agent"),
        QStringLiteral("content-type"), QStringLiteral("accept"),
        QStringLiteral("x-yovo-signature"), QStringLiteral("yovo-devbar-disable")};
    int last = -1;
    for (const QString& name : ours) {
        const int at = names.indexOf(name);
        EXPECT_GT(at, last) << name.toStdString();
        last = at;
    }
    EXPECT_EQ(headerValues(response, QStringLiteral("User-Agent")),
        QStringList {QStringLiteral("Yovo_Http_Client/1.10")});
    EXPECT_EQ(headerValues(response, QStringLiteral("Content-Type")),
        QStringList {QStringLiteral("application/x-www-form-urlencoded")});
    EXPECT_EQ(headerValues(response, QStringLiteral("Accept")),
        QStringList {QStringLiteral("application/vnd.yovo.serverapi+xml;version=1.3")});
    EXPECT_EQ(
        headerValues(response, QStringLiteral("Date")), QStringList {field(response, "date")});
}

TEST_F(YWebApiTest, HostWithoutSchemeServesTheFirstAndTheSecondCall)
{
    YWebApi api(hostPort(), QLatin1String(KEY_NAME), QLatin1String(KEY));
    for (int call = 0; call < 2; ++call) {
        YWebApiResponse response = api.post(YWebApi::MONITOR_GET_RULES, {});
        ASSERT_EQ(response.getStatus(), 200) << call;
        EXPECT_EQ(field(response, "target"), QStringLiteral("/YovoServer/Api/monitorGetRules"));
        EXPECT_EQ(headerValues(response, QStringLiteral("Host")), QStringList {hostPort()});
        EXPECT_EQ(field(response, "signature"), QStringLiteral("valid"));
    }
}

TEST_F(YWebApiTest, HttpSchemeIsLeftOutOfTheSignedHost)
{
    YWebApi api(
        QStringLiteral("http://") + hostPort(), QLatin1String(KEY_NAME), QLatin1String(KEY));
    for (int call = 0; call < 2; ++call) {
        YWebApiResponse response = api.get(YWebApi::APPLICATION_GET_STATUS, {});
        ASSERT_EQ(response.getStatus(), 200) << response.getErrorMessage().toStdString();
        EXPECT_EQ(field(response, "signature"), QStringLiteral("valid"));
    }
}

// The first call goes to "http://https://...", later ones to plain http.
TEST_F(YWebApiTest, HttpsSchemeFailsTheFirstCallOnly)
{
    YWebApi api(QStringLiteral("https://") + hostPort(), QString(), QString());
    YWebApiResponse first = api.post(YWebApi::MONITOR_GET_RULES, {});
    EXPECT_EQ(first.getStatus(), 0);
    EXPECT_EQ(first.getErrorMessage(), QStringLiteral("Timeout while reading response"));
    YWebApiResponse second = api.post(YWebApi::MONITOR_GET_RULES, {});
    EXPECT_EQ(second.getStatus(), 200);
    EXPECT_EQ(field(second, "target"), QStringLiteral("/YovoServer/Api/monitorGetRules"));
}

TEST_F(YWebApiTest, GetWithoutParametersEndsInAQuestionMark)
{
    YWebApi api(hostPort(), QString(), QString());
    YWebApiResponse response = api.get(YWebApi::PAGECACHE_RULES_LIST, {});
    ASSERT_EQ(response.getStatus(), 200);
    EXPECT_EQ(field(response, "target"), QStringLiteral("/YovoServer/Api/pagecacheRulesList?"));
}

TEST_F(YWebApiTest, ParametersAreEncodedInOrder)
{
    YWebApi api(hostPort(), QLatin1String(KEY_NAME), QLatin1String(KEY));
    const YWebApi::ParameterList parameters = {qMakePair(QByteArray("b"), QByteArray("2")),
        qMakePair(QByteArray("a"), QByteArray("x y&z=1")),
        qMakePair(QByteArray("empty"), QByteArray())};
    YWebApiResponse got = api.get(YWebApi::MONITOR_SET_RULE, parameters);
    ASSERT_EQ(got.getStatus(), 200);
    EXPECT_EQ(field(got, "query"), QStringLiteral("b=2&a=x%20y%26z%3D1&empty="));
    YWebApiResponse posted = api.post(YWebApi::MONITOR_SET_RULE, parameters);
    ASSERT_EQ(posted.getStatus(), 200);
    EXPECT_EQ(field(posted, "body"), QStringLiteral("b=2&a=x%20y%26z%3D1&empty="));
    EXPECT_EQ(field(posted, "query"), QString());
}

TEST_F(YWebApiTest, NoReplyGivesTheSyntheticErrorDocument)
{
    YWebApi api(QStringLiteral("127.0.0.1:%1").arg(yovotest::closedPort()), QLatin1String(KEY_NAME),
        QLatin1String(KEY));
    for (int method = 0; method < 2; ++method) {
        YWebApiResponse response
            = method == 0 ? api.post(YWebApi::EMAIL_SEND, {}) : api.get(YWebApi::EMAIL_SEND, {});
        EXPECT_EQ(response.getStatus(), 0);
        EXPECT_EQ(response.documentElement().tagName(), QStringLiteral("errorMessage"));
        EXPECT_EQ(response.getErrorMessage(), QStringLiteral("Timeout while reading response"));
        EXPECT_EQ(response.toString(-1),
            QStringLiteral("<errorMessage>Timeout while reading response</errorMessage>"));
    }
}

TEST_F(YWebApiTest, ServerErrorsComeBackWithTheirStatusAndMessage)
{
    YWebApi failing(
        hostPort() + QStringLiteral("/fail"), QLatin1String(KEY_NAME), QLatin1String(KEY));
    YWebApiResponse response = failing.post(YWebApi::APPLICATION_SYNCHRONIZE, {});
    EXPECT_EQ(response.getStatus(), 500);
    EXPECT_EQ(response.getErrorMessage(), QStringLiteral("Internal failure"));

    YWebApi wrongKey(hostPort(), QLatin1String(KEY_NAME), QStringLiteral("not the key"));
    YWebApiResponse refused = wrongKey.post(YWebApi::APPLICATION_SYNCHRONIZE, {});
    EXPECT_EQ(refused.getStatus(), 403);
    EXPECT_EQ(refused.getErrorMessage(), QStringLiteral("Bad signature"));
}

TEST_F(YWebApiTest, UnparseableReplyGivesAnEmptyDocumentWithTheStatus)
{
    YWebApi api(
        hostPort() + QStringLiteral("/garbage"), QLatin1String(KEY_NAME), QLatin1String(KEY));
    YWebApiResponse response = api.get(YWebApi::CONFIGURATION_EXPORT, {});
    EXPECT_EQ(response.getStatus(), 200);
    EXPECT_TRUE(response.documentElement().isNull());
    EXPECT_EQ(response.getErrorMessage(), QString());
}

TEST_F(YWebApiTest, CopiesAreIndependent)
{
    YWebApi api(QStringLiteral("http://") + hostPort(), QString(), QString());
    YWebApi copy(api);
    EXPECT_EQ(api.get(YWebApi::APPLICATION_GET_STATUS, {}).getStatus(), 200);
    YWebApi assigned(QStringLiteral("elsewhere"), QString(), QString());
    assigned = copy;
    EXPECT_EQ(copy.post(YWebApi::APPLICATION_GET_STATUS, {}).getStatus(), 200);
    EXPECT_EQ(assigned.post(YWebApi::APPLICATION_GET_STATUS, {}).getStatus(), 200);
}
