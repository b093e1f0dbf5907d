// The yardstick for yledgerd: the same service written plainly with POSIX sockets and SQLite's C
// API, no Qt and no YovoLib.
#ifndef PLAIN_LEDGER_SERVER_H
#define PLAIN_LEDGER_SERVER_H

/// Opens `database` as yledgerd opens its own (same table, WAL, synchronous = full, a busy
/// timeout of 5 s) and serves the loopback socket `listening` until the process ends: one
/// connection at a time, one message frame each, and each stored row committed before the
/// acknowledgement goes out. Only the form of frame that YMessage writes is understood. Returns
/// only when the database can't be opened or accepting fails for good, after a line on stderr.
int plainLedgerServe(int listening, const char* database);

/// A loopback TCP socket listening on a port of the kernel's choice; -1 on failure.
int plainLedgerListen(unsigned short* port);

#endif // PLAIN_LEDGER_SERVER_H
