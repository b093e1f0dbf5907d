yovo_add_sources(
    PUBLIC_HEADERS
        scan_dir.h
        yovo_server_info.h
    SOURCES
        scan_dir.cpp
        yovo_server_info.cpp)
