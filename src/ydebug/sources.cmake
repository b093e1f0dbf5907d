yovo_add_sources(
    PUBLIC_HEADERS
        message_formatter.h
        periodic_log_rotator.h
        ycyclic_buffer.h
        ydebug.h
    PRIVATE_HEADERS
        crash_handler_p.h
        minidump_writer_p.h
        ydebug_sink_p.h
    SOURCES
        crash_handler.cpp
        message_formatter.cpp
        periodic_log_rotator.cpp
        ydebug.cpp
    POSIX_SOURCES
        crash_handler_posix.cpp
        minidump_writer_posix.cpp
        ydebug_posix.cpp)

# The message catalogue is read with the DOM classes; no public header shows them.
target_link_libraries(yovolib PRIVATE Qt5::Xml)

# The interactive console of the process host.
yovo_add_sources(
    PUBLIC_HEADERS
        ydebug_console.h
    SOURCES
        ydebug_console.cpp)
