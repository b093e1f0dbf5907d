yovo_add_sources(
    PUBLIC_HEADERS
        http_request.h
        web_api.h
    SOURCES
        http_request.cpp
        web_api.cpp)
