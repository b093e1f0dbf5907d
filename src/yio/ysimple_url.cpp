#include "ysimple_url.h"

#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QThread>
#include <QThreadStorage>
#include <QTimer>
#include <QUrlQuery>

#include <memory>

namespace {

const int DEFAULT_TIMEOUT_MS = 3000;

const char* const CONTENT_TYPE = "Content-type";

int effectiveTimeout(int timeoutMs)
{
    return timeoutMs > 0 ? timeoutMs : DEFAULT_TIMEOUT_MS;
}

// Each fetch is to behave as if it had a manager of its own: nothing a server set may reach the
// next call. Cookies are what a manager keeps by itself; this jar keeps none.
class ForgetfulCookieJar : public QNetworkCookieJar
{
public:
    bool setCookiesFromUrl(const QList<QNetworkCookie>&, const QUrl&) override { return false; }
};

// One manager per thread serves every fetch of that thread, so that a connection, and the TLS
// session on it, outlives the call that opened it; a manager per call cost a helper thread, a
// connection and a handshake each time. QThreadStorage deletes the manager when its thread
// finishes (for the main thread, when the application object goes), while Qt is still whole.
QNetworkAccessManager* threadFetchManager()
{
    static QThreadStorage<QNetworkAccessManager*> managers;
    if (!managers.hasLocalData()) {
        auto* manager = new QNetworkAccessManager;
        manager->setCookieJar(new ForgetfulCookieJar);
        managers.setLocalData(manager);
    }
    return managers.localData();
}

} // namespace

YSimpleURLRequestEventLoop::YSimpleURLRequestEventLoop(QNetworkReply* reply)
    : _reply(reply)
{
}

void YSimpleURLRequestEventLoop::sslErrorsFromManager(
    QNetworkReply* reply, const QList<QSslError>& errors)
{
    bool fatal = false;
    for (const QSslError& sslError : errors) {
        if (sslError.error() != QSslError::SelfSignedCertificate
            && sslError.error() != QSslError::SelfSignedCertificateInChain) {
            _errorText = sslError.errorString();
            fatal = true;
        }
    }
    if (!fatal)
        reply->ignoreSslErrors();
}

YSimpleURL::YSimpleURL()
    : _reply(nullptr)
    , _status(0)
{
}

YSimpleURL::~YSimpleURL() = default;

void YSimpleURL::setHeader(const QByteArray& name, const QByteArray& value)
{
    _headers.append(qMakePair(name, value));
}

void YSimpleURL::addQueryItem(const QByteArray& name, const QByteArray& value)
{
    QUrlQuery query(_query);
    // An empty value still gets its "=", as form encoding has it.
    query.addQueryItem(
        QString::fromUtf8(name), value.isEmpty() ? QStringLiteral("") : QString::fromUtf8(value));
    _query.setQuery(query);
}

QNetworkRequest YSimpleURL::prepareRequest(const QString& url, bool forFetch)
{
    _body.clear();
    _errorText.clear();

    const QUrl target(url);
    QNetworkRequest request(target);
    if (forFetch) {
        // kept: redirect-attribute - set on the request, where the network layer never reads it.
        request.setAttribute(QNetworkRequest::RedirectionTargetAttribute, true);
    }
    for (const QPair<QByteArray, QByteArray>& header : qAsConst(_headers)) {
        if (header.first == CONTENT_TYPE)
            request.setHeader(QNetworkRequest::ContentTypeHeader, header.second);
        else
            request.setRawHeader(header.first, header.second);
    }
    // Whatever the caller set: the stack's own pages must never add their debugging bar.
    request.setRawHeader("YOVO-DEVBAR-DISABLE", "1");

    QSslConfiguration sslConfiguration = QSslConfiguration::defaultConfiguration();
    sslConfiguration.setProtocol(QSsl::TlsV1_2OrLater);
    if (target.scheme() == QLatin1String("https"))
        request.setSslConfiguration(sslConfiguration);
    return request;
}

QByteArray YSimpleURL::fetch(const QString& url, int timeoutMs)
{
    const QNetworkRequest request = prepareRequest(url, true);
    // Credentials in the URL would stay in a shared manager's cache and go out with later calls to
    // the same server; such a call keeps a manager of its own.
    std::unique_ptr<QNetworkAccessManager> ownManager;
    if (!request.url().userInfo().isEmpty())
        ownManager.reset(new QNetworkAccessManager);
    QNetworkAccessManager* manager = ownManager ? ownManager.get() : threadFetchManager();
    manager->moveToThread(QThread::currentThread());
    _reply = manager->get(request);

    YSimpleURLRequestEventLoop loop(_reply);
    // A coarse timer, Qt's choice from two seconds on, may fire up to 5% early.
    QTimer::singleShot(effectiveTimeout(timeoutMs), Qt::PreciseTimer, &loop, &QEventLoop::quit);
    // By member pointer: a look-up by signature text costs more than the rest of the set-up.
    connect(_reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    connect(manager, &QNetworkAccessManager::sslErrors, &loop,
        &YSimpleURLRequestEventLoop::sslErrorsFromManager);
    loop.exec();

    _status = _reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    _body = _reply->readAll();
    // kept: timeout-text - a refused connection also reads as a time-out.
    _errorText
        = _status == 0 ? QStringLiteral("Timeout while reading response") : _reply->errorString();
    // A request that the timer ended is not aborted: it goes with its reply, whose end closes its
    // connection, just as a manager of the call's own would take it along. A finished reply goes
    // too, or the shared manager would gather them.
    delete _reply;
    return _body;
}

QByteArray YSimpleURL::post(const QString& url, const QByteArray& data, int timeoutMs)
{
    _statusText.clear();
    const QNetworkRequest request = prepareRequest(url, false);
    QNetworkAccessManager manager;
    _reply = manager.post(request, data);

    QEventLoop loop;
    const int timeout = effectiveTimeout(timeoutMs);
    loop.processEvents();
    connect(_reply, SIGNAL(finished()), &loop, SLOT(quit()));
    QTimer::singleShot(timeout, Qt::PreciseTimer, &loop, SLOT(quit()));
    loop.exec();

    _status = _reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    _statusText = _reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toByteArray();
    _body = _reply->readAll();
    _replyHeaders = _reply->rawHeaderPairs();
    _errorText
        = _status == 0 ? QStringLiteral("Timeout while reading response") : _reply->errorString();
    return _body;
}

QByteArray YSimpleURL::post(const QString& url, int timeoutMs)
{
    const QByteArray data = _query.query(QUrl::FullyEncoded).toLatin1();
    bool hasContentType = false;
    for (const QPair<QByteArray, QByteArray>& header : qAsConst(_headers))
        hasContentType = hasContentType || header.first == CONTENT_TYPE;
    if (!hasContentType)
        setHeader(CONTENT_TYPE, "application/x-www-form-urlencoded");
    return post(url, data, timeoutMs);
}

int YSimpleURL::getStatus()
{
    return _status;
}

QString YSimpleURL::getErrorString()
{
    return _errorText;
}

QByteArray YSimpleURL::getStatusText() const
{
    return _statusText;
}

YSimpleURL::HeaderList YSimpleURL::getReplyHeaders() const
{
    return _replyHeaders;
}
