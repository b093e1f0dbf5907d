#ifndef YOVOLIB_WEB_API_H
#define YOVOLIB_WEB_API_H

#include "yovolib_export.h"

#include <QByteArray>
#include <QDomDocument>
#include <QList>
#include <QPair>
#include <QString>

#include <vector>

/// The XML reply of a web API call, with the HTTP status (0 when no reply arrived).
class YOVOLIB_EXPORT YWebApiResponse : public QDomDocument
{
public:
    /// Parses the text; whatever the parser made of a text that isn't well-formed stays.
    explicit YWebApiResponse(const QByteArray& xml);
    int getStatus();
    void setStatus(int status);
    /// The text of the first "errorMessage" element, or an empty string.
    QString getErrorMessage();

private:
    int _status;
};

/// The client of the application server's own web API: twelve routes under "/YovoServer/", a
/// signature header when a key is set, XML replies.
class YOVOLIB_EXPORT YWebApi
{
public:
    enum type
    {
        APPLICATION_GET_STATUS = 0,
        APPLICATION_SYNCHRONIZE,
        MONITOR_GET_RULES,
        MONITOR_SET_RULE,
        MONITOR_REMOVE_RULES,
        SEND_NOTIFICATION,
        PAGECACHE_SAVE_RULE,
        PAGECACHE_SAVE_APPLICATION_RULE,
        PAGECACHE_RULES_LIST,
        PAGECACHE_DELETE_RULES_BY_APPLICATION_ID,
        EMAIL_SEND,
        CONFIGURATION_EXPORT
    };

    enum method_t
    {
        POST = 0,
        GET = 1
    };

    typedef QList<QPair<QByteArray, QByteArray>> ParameterList;

    /// url is host and port, with or without a scheme; an empty keyName makes unsigned calls.
    YWebApi(const QString& url, const QString& keyName, const QString& key);

    /// A GET with a 60-second limit.
    YWebApiResponse get(type apiType, const ParameterList& parameters);
    /// A form-encoded POST with a 10-second limit.
    YWebApiResponse post(type apiType, const ParameterList& parameters);

    static const QByteArray& getUserAgent();
    /// HMAC-SHA256 of "host:path:user agent:date" as 64 lower-case hexadecimal characters.
    static const QByteArray getSignature(
        const QByteArray& key, const QString& host, const QString& path, const QString& date);

protected:
    /// The first call strips the scheme from the stored URL for good, so a URL given with
    /// "https://" is requested as "http://https://..." once and as plain http afterwards, as
    /// peers expect.
    YWebApiResponse callWebapi(type apiType, const ParameterList& parameters, method_t method);
    /// The route of the type; throws YException for a value out of the table.
    QString typeToUrl(type apiType) const;

private:
    static const QByteArray USER_AGENT;
    static std::vector<QByteArray> s_typeToURI;

    QString _url;
    QString _keyName;
    QString _key;
};

#endif // YOVOLIB_WEB_API_H
