#include "ip_verifier.h"

#include "ip_verifier_p.h"
#include "ydebug.h"
#include "ysanitizer_p.h"

#include <QRegExp>

namespace {

// Scope guards over the verifier's locks that also tell the race detector about them: the locks
// are taken inside QtCore, where it can't see them.
class ReadLocker
{
public:
    explicit ReadLocker(QReadWriteLock* lock)
        : _lock(lock)
    {
        _lock->lockForRead();
        YOVO_TSAN_ACQUIRE(_lock);
    }
    ~ReadLocker()
    {
        YOVO_TSAN_RELEASE(_lock);
        _lock->unlock();
    }
    ReadLocker(const ReadLocker&) = delete;
    ReadLocker& operator=(const ReadLocker&) = delete;

private:
    QReadWriteLock* _lock;
};

class WriteLocker
{
public:
    explicit WriteLocker(QReadWriteLock* lock)
        : _lock(lock)
    {
        _lock->lockForWrite();
        YOVO_TSAN_ACQUIRE(_lock);
    }
    ~WriteLocker()
    {
        YOVO_TSAN_RELEASE(_lock);
        _lock->unlock();
    }
    WriteLocker(const WriteLocker&) = delete;
    WriteLocker& operator=(const WriteLocker&) = delete;

private:
    QReadWriteLock* _lock;
};

const QString JOKER = QStringLiteral("*");
const QString JOKER_QUAD = QStringLiteral("*.*.*.*");
const unsigned long NO_ADDRESS = 0xFFFFFFFFul;

const QRegExp& maskGrammar()
{
    static const QRegExp grammar(QStringLiteral(
        "^\\d+\\.\\d+\\.\\d+\\.\\d+|\\d+\\.\\d+\\.\\d+\\.\\*|\\d+\\.\\d+\\.\\*\\.\\*|\\d+\\.\\*\\."
        "\\*\\.\\*|\\*\\.\\*\\.\\*\\.\\*|\\d+\\.\\d+\\.\\d+\\.\\d+\\/([1-2]?[0-9]|3[0-2])$"));
    return grammar;
}

} // namespace

YIpVerifier::YIpVerifier(QStringList masks, bool allowAll)
    : _joker(allowAll)
{
    {
        WriteLocker cacheLocker(&_cacheLock);
        WriteLocker masksLocker(&_masksLock);
        clearIPsAndMasksNoLock();
        addMasksInternalNoLock(masks);
    }
    if (!_masks.isEmpty() && _joker) {
        YLOG_NOTICE(YDebug::STDOUT) << "joker (*) was IGNORED in allowed IPs" << yflush;
        _joker = false;
    }
}

YIpVerifier::~YIpVerifier() = default;

void YIpVerifier::addMasksInternalNoLock(QStringList masks)
{
    for (const QString& entry : qAsConst(masks)) {
        const QString mask = entry.trimmed();
        if (mask == JOKER || mask == JOKER_QUAD) {
            _joker = true;
            continue;
        }
        // QRegExp keeps the state of its last match: each use gets its own copy.
        QRegExp grammar = maskGrammar();
        if (grammar.exactMatch(mask)) {
            _masks.append(mask);
            continue;
        }
        YLOG_WARNING(YDebug::STDOUT)
            << "Error in parsing \"" + mask.toLatin1() + "\" for allowed IPs. Mask skipped."
            << yflush;
    }
}

void YIpVerifier::clearIPsAndMasksNoLock()
{
    _masks.clear();
    _cache.clear();
}

bool YIpVerifier::verify(unsigned long address)
{
    if ((address & 0xFF) == 0x7F)
        return true;
    if (_joker)
        return true;
    {
        ReadLocker cacheLocker(&_cacheLock);
        const auto it = _cache.constFind(address);
        if (it != _cache.constEnd())
            return it.value();
    }
    WriteLocker cacheLocker(&_cacheLock);
    ReadLocker masksLocker(&_masksLock);
    for (const QString& mask : qAsConst(_masks)) {
        if (matchMaskNoLock(address, mask)) {
            _cache.insert(address, true);
            return true;
        }
    }
    _cache.insert(address, false);
    return false;
}

bool YIpVerifier::matchMaskNoLock(unsigned long address, QString mask) const
{
    // kept: ip-mask-255-wild
    mask.replace(QStringLiteral("255"), JOKER);
    const int stars = mask.count(QLatin1Char('*'));
    if (stars > 0)
        mask += QStringLiteral("/%1").arg(32 - 8 * stars);
    else if (!mask.contains(QLatin1Char('/')))
        mask += QStringLiteral("/32");

    const int slash = mask.indexOf(QLatin1Char('/'));
    const QString prefixText = mask.mid(slash + 1).section(QLatin1Char('/'), 0, 0);
    bool ok = false;
    const int prefix = prefixText.toInt(&ok);
    // A mask with more wild octets than an address has gives a length below 0: nothing matches.
    if (!ok || prefix < 0 || prefix > 32)
        return false;
    const unsigned long netmask
        = prefix == 0 ? 0ul : yipverifier::toNetworkOrderSys(0xFFFFFFFFul << (32 - prefix));

    QString addressText = mask.left(slash);
    addressText.replace(JOKER, QStringLiteral("255"));
    const unsigned long maskAddress = yipverifier::parseAddressSys(addressText.toLatin1());
    // kept: ip-mask-broadcast-never-matches
    if (maskAddress == NO_ADDRESS)
        return false;
    return ((address & netmask) & 0xFFFFFFFFul) == ((maskAddress & netmask) & 0xFFFFFFFFul);
}

void YIpVerifier::addMask(QString mask)
{
    // kept: ip-add-mask-cache-lock
    WriteLocker cacheLocker(&_cacheLock);
    addMasksInternalNoLock(QStringList() << mask);
}

void YIpVerifier::addMasks(QStringList masks)
{
    WriteLocker masksLocker(&_masksLock);
    addMasksInternalNoLock(masks);
}

void YIpVerifier::resetMasks(QStringList masks)
{
    WriteLocker cacheLocker(&_cacheLock);
    WriteLocker masksLocker(&_masksLock);
    clearIPsAndMasksNoLock();
    addMasksInternalNoLock(masks);
}

void YIpVerifier::clear()
{
    WriteLocker cacheLocker(&_cacheLock);
    WriteLocker masksLocker(&_masksLock);
    clearIPsAndMasksNoLock();
}

QString YIpVerifier::getConfigString()
{
    ReadLocker masksLocker(&_masksLock);
    if (_joker)
        return QStringLiteral("joker (*) specified - ALL IPs ARE ALLOWED to connect");
    if (!_masks.isEmpty())
        return QStringLiteral("the following IPs/masks are allowed to communicate with this "
                              "machine:")
            + _masks.join(QLatin1Char(','));
    return QStringLiteral("no IPs are allowed to communicate with this machine!");
}
