// Not part of the YovoLib API: driver names that QtSql doesn't know by itself.
#ifndef YOVOLIB_YDB_DRIVERS_P_H
#define YOVOLIB_YDB_DRIVERS_P_H

/// Registers "DRIZZLE" as another name of Qt's MySQL driver, once per process. Pools call it
/// before they register a connection.
void yDbRegisterDrivers();

#endif // YOVOLIB_YDB_DRIVERS_P_H
