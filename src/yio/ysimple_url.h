#ifndef YOVOLIB_YSIMPLE_URL_H
#define YOVOLIB_YSIMPLE_URL_H

#include "yovolib_export.h"

#include <QByteArray>
#include <QEventLoop>
#include <QList>
#include <QNetworkReply>
#include <QObject>
#include <QPair>
#include <QSslError>
#include <QString>
#include <QUrl>

/// The loop that YSimpleURL::fetch waits on; it also judges the certificate errors.
class YOVOLIB_EXPORT YSimpleURLRequestEventLoop : public QEventLoop
{
    Q_OBJECT

public:
    explicit YSimpleURLRequestEventLoop(QNetworkReply* reply);
    /// The text of the last fatal certificate error; empty when there was none.
    QString getErrorString() const { return _errorText; }
    QNetworkReply* getReply() const { return _reply; }

public slots:
    /// Self-signed certificates, alone or at the top of a chain, are ignored; with any other
    /// error the reply is left to fail by itself.
    void sslErrorsFromManager(QNetworkReply* reply, const QList<QSslError>& errors);

private:
    QNetworkReply* _reply; // not owned
    QString _errorText;
};

/// The strings-in, bytes-out HTTP client: headers and query items in, a blocking GET or POST with
/// a time-out, the body out; status and error text can be read afterwards.
class YOVOLIB_EXPORT YSimpleURL : public QObject
{
    Q_OBJECT

public:
    typedef QList<QPair<QByteArray, QByteArray>> HeaderList;

    YSimpleURL();
    ~YSimpleURL() override;

    /// Appends a request header; a name set twice is sent with the later value.
    void setHeader(const QByteArray& name, const QByteArray& value);
    /// Adds a query item to what post(url, timeoutMs) sends.
    void addQueryItem(const QByteArray& name, const QByteArray& value);

    /// GET; a time-out of 0 or less means 3,000 ms. Redirections come back as they are.
    QByteArray fetch(const QString& url, int timeoutMs);
    /// POST of data; a time-out of 0 or less means 3,000 ms. No certificate error is forgiven.
    QByteArray post(const QString& url, const QByteArray& data, int timeoutMs);
    /// POST of the collected query items, form-encoded unless a "Content-type" was set.
    QByteArray post(const QString& url, int timeoutMs);

    /// The HTTP status of the latest call, 0 when none arrived.
    int getStatus();
    /// "Timeout while reading response" when no status arrived, else the network layer's text,
    /// also after a success.
    QString getErrorString();
    /// The reason phrase of the latest POST.
    QByteArray getStatusText() const;
    const HeaderList& getHeaders() const { return _headers; }
    /// The headers of the latest POST reply.
    HeaderList getReplyHeaders() const;

private:
    QNetworkRequest prepareRequest(const QString& url, bool forFetch);

    QNetworkReply* _reply; // of the latest call; dangling once the call has returned
    QByteArray _body;
    int _status;
    QString _errorText;
    HeaderList _headers;
    QUrl _query;
    QByteArray _statusText;
    HeaderList _replyHeaders;
};

#endif // YOVOLIB_YSIMPLE_URL_H
