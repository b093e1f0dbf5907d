#include "http_request.h"

#include <QSslConfiguration>
#include <QThread>
#include <QTimer>

namespace {

const int REQUEST_TIMEOUT_MS = 30000;

} // namespace

YHttpRequestEventLoop::YHttpRequestEventLoop(QNetworkReply* reply, YDebug::StreamId stream)
    : _reply(reply)
    , _stream(stream)
{
}

QString YHttpRequestEventLoop::getRedirectUrl()
{
    return _redirectUrl;
}

void YHttpRequestEventLoop::quit()
{
    YLOG_DBG3(_stream) << "At YHttpRequestEventLoop::quit" << yflush;
    QEventLoop::quit();
}

void YHttpRequestEventLoop::metaDataChanged()
{
    _redirectUrl = _reply->attribute(QNetworkRequest::RedirectionTargetAttribute).toString();
    if (!_redirectUrl.isEmpty()) {
        YLOG_DBG2(_stream) << "YHttpRequest::metaDataChanged received a redirection from"
                           << _reply->url().toString() << "to" << _redirectUrl << yflush;
        // The body of a redirection is of no interest; aborting makes finished() end the loop.
        _reply->abort();
    }
}

void YHttpRequestEventLoop::downloadProgress(qint64 received, qint64 total)
{
    YLOG_DBG3(_stream) << "At YRequestEventLoop::downloadProgress" << received << "of" << total
                       << yflush;
}

void YHttpRequestEventLoop::error(QNetworkReply::NetworkError code)
{
    // The caller reads the error from the reply itself.
    Q_UNUSED(code);
}

void YHttpRequestEventLoop::sslErrors(const QList<QSslError>& errors)
{
    YLOG_DBG3(_stream) << "At YHttpRequestEventLoop::sslErrors" << yflush;
    bool fatal = false;
    for (const QSslError& sslError : errors) {
        if (sslError.error() != QSslError::SelfSignedCertificate
            && sslError.error() != QSslError::SelfSignedCertificateInChain)
            fatal = true;
    }
    if (fatal) {
        _reply->abort();
        return;
    }
    if (!errors.isEmpty()) {
        YLOG_DBG1(_stream) << "Ignored ssl error:" << static_cast<int>(errors.last().error())
                           << errors.last().errorString() << yflush;
    }
    _reply->ignoreSslErrors();
}

void YHttpRequestEventLoop::timeout()
{
    YLOG_ERROR(_stream) << _reply->url().toString() << "error: No network activity" << yflush;
    _reply->abort();
}

YHttpRequest::YHttpRequest()
    : _eventLoop(nullptr)
{
}

YHttpRequest::~YHttpRequest()
{
    delete _eventLoop;
    // The manager, a member, goes next and takes its replies with it.
}

QNetworkReply* YHttpRequest::get(QNetworkRequest& request, YDebug::StreamId stream)
{
    YLOG_DBG2(stream) << "YHttpRequest::get" << request.url().toString() << yflush;

    // Only a TLS request carries the configuration; a plain one is spared the copy of the default.
    if (request.url().toString().startsWith(QLatin1String("https"))) {
        QSslConfiguration sslConfiguration = QSslConfiguration::defaultConfiguration();
        sslConfiguration.setProtocol(QSsl::TlsV1_2OrLater);
        request.setSslConfiguration(sslConfiguration);
    }

    // An object made in one thread may serve requests from another.
    _manager.moveToThread(QThread::currentThread());
    QNetworkReply* reply = _manager.get(request);

    QTimer timer;
    // A coarse timer may fire up to 5% early; the limit is never to be shorter than stated.
    timer.setTimerType(Qt::PreciseTimer);
    delete _eventLoop;
    _eventLoop = new YHttpRequestEventLoop(reply, stream);

    // Connections by member pointer: looked up by their text, the six cost three times as much,
    // some microseconds on every request.
    QObject::connect(reply, &QNetworkReply::finished, _eventLoop, &YHttpRequestEventLoop::quit);
    QObject::connect(reply, &QNetworkReply::metaDataChanged, _eventLoop,
        &YHttpRequestEventLoop::metaDataChanged);
    QObject::connect(reply, &QNetworkReply::downloadProgress, _eventLoop,
        &YHttpRequestEventLoop::downloadProgress);
    // Qt 5.15 marks this signal deprecated (it emits errorOccurred with it); by its text it is
    // connected without a warning.
    QObject::connect(reply, SIGNAL(error(QNetworkReply::NetworkError)), _eventLoop,
        SLOT(error(QNetworkReply::NetworkError)));
    QObject::connect(
        reply, &QNetworkReply::sslErrors, _eventLoop, &YHttpRequestEventLoop::sslErrors);
    QObject::connect(&timer, &QTimer::timeout, _eventLoop, &YHttpRequestEventLoop::timeout);

    // kept: timeout-from-start - the limit counts from here and progress never restarts it.
    timer.start(REQUEST_TIMEOUT_MS);
    _eventLoop->exec();
    timer.stop();

    const QString redirectUrl = _eventLoop->getRedirectUrl();
    if (!redirectUrl.isEmpty()) {
        reply->deleteLater();
        // kept: unresolved-redirect - a relative target is requested as it stands.
        request.setUrl(QUrl(redirectUrl));
        // kept: endless-redirects - each hop is a new call, with no limit on their number.
        return get(request, stream);
    }
    return reply;
}

YHttpReply::YHttpReply(QNetworkReply* reply)
    : _reply(reply)
{
}

int YHttpReply::getHttpStatus() const
{
    return _reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QString YHttpReply::errorString() const
{
    return _reply->errorString();
}
