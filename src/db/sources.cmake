yovo_add_sources(
    PUBLIC_HEADERS
        ydb.h
        ydb_config_reader.h
        ydb_connection.h
        ydb_mysql_lock.h
        ydb_table_copier.h
        yovo_db_sqlite_info.h
        ysafe_sql_query.h
    PRIVATE_HEADERS
        ydb_drivers_p.h
    SOURCES
        ydb.cpp
        ydb_config_reader.cpp
        ydb_connection.cpp
        ydb_drivers.cpp
        ydb_mysql_lock.cpp
        ydb_table_copier.cpp
        yovo_db_sqlite_info.cpp
        ysafe_sql_query.cpp)

# Public headers show QtSql types, and the statement catalogue holds a DOM document.
target_link_libraries(yovolib PUBLIC Qt5::Sql Qt5::Xml)
