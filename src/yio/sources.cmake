yovo_add_sources(
    PUBLIC_HEADERS
        ysimple_url.h
    SOURCES
        ysimple_url.cpp)
