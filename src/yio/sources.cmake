# JSON: the value tree with comments, its reader and writer, and the element wrapper.
yovo_add_sources(
    PUBLIC_HEADERS
        json_element.h
        json_reader.h
        json_value.h
        json_writer.h
    SOURCES
        json_element.cpp
        json_reader.cpp
        json_value.cpp
        json_writer.cpp)

# The element wrapper sits on the system cJSON.
target_link_libraries(yovolib PRIVATE PkgConfig::CJSON)
