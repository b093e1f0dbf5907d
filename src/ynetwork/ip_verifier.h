#ifndef YOVOLIB_IP_VERIFIER_H
#define YOVOLIB_IP_VERIFIER_H

#include "yovolib_export.h"

#include <QHash>
#include <QReadWriteLock>
#include <QString>
#include <QStringList>

/// Decides whether a peer address may talk to a daemon, from a list of address masks, and
/// remembers each answer. Safe to ask from many threads; the lock order is cache, then masks.
class YOVOLIB_EXPORT YIpVerifier
{
public:
    /// A real mask in the list overrides "*" here (with a notice on STDOUT); later additions
    /// don't have that rule.
    YIpVerifier(QStringList masks = QStringList(), bool allowAll = false);
    ~YIpVerifier();

    /// The address in network byte order, as inet_addr gives it. Loopback (127.x.x.x) is always
    /// allowed.
    bool verify(unsigned long address);
    /// Neither addition empties the cache: an address refused earlier stays refused until
    /// clear() or resetMasks().
    void addMask(QString mask);
    void addMasks(QStringList masks);
    void resetMasks(QStringList masks);
    /// Empties the masks and the cache; the joker stays as it is.
    void clear();
    QString getConfigString();

protected:
    void addMasksInternalNoLock(QStringList masks);
    void clearIPsAndMasksNoLock();
    bool matchMaskNoLock(unsigned long address, QString mask) const;

private:
    YIpVerifier(const YIpVerifier&) = delete;
    YIpVerifier& operator=(const YIpVerifier&) = delete;

    QHash<unsigned long, bool> _cache;
    QReadWriteLock _cacheLock;
    QStringList _masks;
    QReadWriteLock _masksLock;
    bool _joker;
};

#endif // YOVOLIB_IP_VERIFIER_H
