yovo_add_sources(
    PUBLIC_HEADERS
        ini_file_values_manager.h
        parameters_registry.h
        php_ini_parser.h
        scan_dir.h
        yovo_server_info.h
    PRIVATE_HEADERS
        parameters_registry_p.h
        scan_dir_p.h
    SOURCES
        ini_file_values_manager.cpp
        parameters_registry.cpp
        php_ini_parser.cpp
        scan_dir.cpp
        scan_dir_rewrite.cpp
        yovo_server_info.cpp
    POSIX_SOURCES
        parameters_registry_posix.cpp
        scan_dir_posix.cpp)

# The deployment descriptor of the parameter registry is XML.
target_link_libraries(yovolib PRIVATE Qt5::Xml)

yovo_add_sources(
    PUBLIC_HEADERS
        ysimple_url.h
    SOURCES
        ysimple_url.cpp)

# The HTTP client's public header shows the network classes.
target_link_libraries(yovolib PUBLIC Qt5::Network)

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
