yovo_add_sources(
    PUBLIC_HEADERS
        ysimple_url.h
    SOURCES
        ysimple_url.cpp)

# The HTTP client's public header shows the network classes.
target_link_libraries(yovolib PUBLIC Qt5::Network)
