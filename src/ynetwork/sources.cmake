yovo_add_sources(
    PUBLIC_HEADERS
        http_request.h
        web_api.h
    SOURCES
        http_request.cpp
        web_api.cpp)

# The public headers show the network classes and, in the web API's reply, the DOM classes.
target_link_libraries(yovolib PUBLIC Qt5::Network Qt5::Xml)
