#include "web_api.h"

#include "yexception.h"
#include "ysha256.h"
#include "ysimple_url.h"

#include <QDateTime>
#include <QDomNodeList>
#include <QLocale>
#include <QRegExp>
#include <QUrl>
#include <QUrlQuery>

namespace {

const int POST_TIMEOUT_MS = 10000;
const int GET_TIMEOUT_MS = 60000;

const char* const ROUTES[] = {"Api/applicationGetStatus", "Api/applicationSynchronize",
    "Api/monitorGetRules", "Api/monitorSetRule", "Api/monitorRemoveRules", "Api/sendNotification",
    "Api/pagecacheSaveRule", "Api/pagecacheSaveApplicationRule", "Api/pagecacheRulesList",
    "Api/pagecacheDeleteRulesByApplicationId", "Api/emailSend", "Api/configurationExport"};

} // namespace

const QByteArray YWebApi::USER_AGENT("Yovo_Http_Client/1.10");
std::vector<QByteArray> YWebApi::s_typeToURI;

YWebApiResponse::YWebApiResponse(const QByteArray& xml)
    : _status(0)
{
    setContent(xml);
}

int YWebApiResponse::getStatus()
{
    return _status;
}

void YWebApiResponse::setStatus(int status)
{
    _status = status;
}

QString YWebApiResponse::getErrorMessage()
{
    const QDomNodeList messages = elementsByTagName(QStringLiteral("errorMessage"));
    if (messages.isEmpty())
        return QString();
    return messages.at(0).toElement().text();
}

YWebApi::YWebApi(const QString& url, const QString& keyName, const QString& key)
    : _url(url)
    , _keyName(keyName)
    , _key(key)
{
    // Filled once, without a lock: the first object is made before threads share the class.
    if (s_typeToURI.empty()) {
        for (const char* route : ROUTES)
            s_typeToURI.push_back(QByteArray(route));
    }
}

YWebApiResponse YWebApi::get(type apiType, const ParameterList& parameters)
{
    return callWebapi(apiType, parameters, GET);
}

YWebApiResponse YWebApi::post(type apiType, const ParameterList& parameters)
{
    return callWebapi(apiType, parameters, POST);
}

const QByteArray& YWebApi::getUserAgent()
{
    return USER_AGENT;
}

const QByteArray YWebApi::getSignature(
    const QByteArray& key, const QString& host, const QString& path, const QString& date)
{
    const QString text
        = QStringLiteral("%1:%2:%3:%4").arg(host, path, QString::fromLatin1(USER_AGENT), date);
    YSHA256 digest;
    return digest.hmac(text.toLocal8Bit(), key);
}

QString YWebApi::typeToUrl(type apiType) const
{
    const int index = static_cast<int>(apiType);
    if (index < 0 || static_cast<size_t>(index) >= s_typeToURI.size())
        throw YException("YWebApi::type type out of bounds", __FILE__, __LINE__);
    return QString::fromLatin1(s_typeToURI[static_cast<size_t>(index)]);
}

YWebApiResponse YWebApi::callWebapi(type apiType, const ParameterList& parameters, method_t method)
{
    // English names keep the day and the month readable by the server on any machine.
    const QLocale english(QLocale::English, QLocale::system().country());
    const QString date = english.toString(
        QDateTime::currentDateTime().toUTC(), QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"));

    YSimpleURL request;
    request.setHeader("Date", date.toLocal8Bit());
    request.setHeader("User-agent", USER_AGENT);
    request.setHeader("Content-type", "application/x-www-form-urlencoded");
    request.setHeader("Accept", "application/vnd.yovo.serverapi+xml;version=1.3");

    const QString path = QStringLiteral("/YovoServer/") + typeToUrl(apiType);
    QString url = _url + path;
    // kept: https-prefix - a URL given with "https://" becomes "http://https://..." at the first
    // call.
    if (!url.startsWith(QLatin1String("http://")))
        url.prepend(QLatin1String("http://"));

    // kept: url-loses-scheme - the stored URL itself loses its scheme, for every later call.
    _url.replace(QRegExp(QStringLiteral("https?://"), Qt::CaseSensitive), QString());
    const QString& host = _url;

    if (!_keyName.isEmpty()) {
        const QByteArray signature = getSignature(_key.toLocal8Bit(), host, path, date);
        request.setHeader("X-Yovo-Signature",
            QStringLiteral("%1;%2").arg(_keyName, QString::fromLatin1(signature)).toLocal8Bit());
    }

    QUrlQuery query;
    for (const QPair<QByteArray, QByteArray>& parameter : parameters) {
        // An empty value still gets its "=", as form encoding has it.
        query.addQueryItem(QString::fromUtf8(parameter.first),
            parameter.second.isEmpty() ? QStringLiteral("") : QString::fromUtf8(parameter.second));
    }
    const QByteArray encoded = query.query(QUrl::FullyEncoded).toLatin1();

    QByteArray body;
    if (method == POST) {
        body = request.post(url, encoded, POST_TIMEOUT_MS);
    } else {
        url += QLatin1Char('?') + QString::fromLatin1(encoded);
        body = request.fetch(url, GET_TIMEOUT_MS);
    }

    YWebApiResponse response(body);
    response.setStatus(request.getStatus());
    if (response.getStatus() == 0) {
        // Transport failures read like server errors, through getErrorMessage.
        response.setContent(
            QStringLiteral("<errorMessage>%1</errorMessage>").arg(request.getErrorString()));
    }
    return response;
}
