#ifndef YOVOLIB_HTTP_REQUEST_H
#define YOVOLIB_HTTP_REQUEST_H

#include "ydebug.h"
#include "yovolib_export.h"

#include <QEventLoop>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslError>
#include <QString>

/// The local loop that one YHttpRequest::get waits on, until the reply ends or the time runs out.
class YOVOLIB_EXPORT YHttpRequestEventLoop : public QEventLoop
{
    Q_OBJECT

public:
    YHttpRequestEventLoop(QNetworkReply* reply, YDebug::StreamId stream);
    /// The redirection target announced by the reply's headers; empty when there was none.
    QString getRedirectUrl();

public slots:
    void quit();
    void metaDataChanged();
    /// Only logs: progress does not extend the time-out.
    void downloadProgress(qint64 received, qint64 total);
    void error(QNetworkReply::NetworkError code);
    /// Self-signed certificates, alone or at the top of a chain, are ignored; any other error
    /// aborts the reply.
    void sslErrors(const QList<QSslError>& errors);
    /// Aborts the reply. The limit counts from the start of the request, not from the last byte.
    void timeout();

private:
    QNetworkReply* _reply; // not owned
    QString _errorText; // nothing in the library writes it
    QString _redirectUrl;
    YDebug::StreamId _stream;
};

/// A blocking HTTP GET on a local event loop, which follows redirections by itself, accepts
/// self-signed certificates and gives up 30 seconds after each hop began.
class YOVOLIB_EXPORT YHttpRequest
{
public:
    YHttpRequest();
    ~YHttpRequest();
    YHttpRequest(const YHttpRequest&) = delete;
    YHttpRequest& operator=(const YHttpRequest&) = delete;

    /// Sends the request and waits for its end. The reply belongs to this object and stays valid
    /// until the next get or the object's end; request holds the last URL followed. Redirections
    /// are followed without limit, so a redirect cycle ends only with the stack, deliberately.
    QNetworkReply* get(QNetworkRequest& request, YDebug::StreamId stream);

private:
    QNetworkAccessManager _manager;
    YHttpRequestEventLoop* _eventLoop; // owned; the loop of the latest request
};

/// Reads the outcome of a reply that YHttpRequest::get returned.
class YOVOLIB_EXPORT YHttpReply
{
public:
    explicit YHttpReply(QNetworkReply* reply);
    /// The HTTP status, 0 when the reply has none.
    int getHttpStatus() const;
    QString errorString() const;

private:
    QNetworkReply* _reply; // not owned
};

#endif // YOVOLIB_HTTP_REQUEST_H
