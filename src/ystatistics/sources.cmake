yovo_add_sources(
    PUBLIC_HEADERS
        ymoving_window.h
    SOURCES
        ymoving_window.cpp)
