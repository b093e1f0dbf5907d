yovo_add_sources(
    PUBLIC_HEADERS
        field_info.h
        message.h
        message_handler.h
        type_info.h
        type_registry.h
        xml_type_loader.h
    PRIVATE_HEADERS
        message_body_p.h
    SOURCES
        field_info.cpp
        message.cpp
        message_body.cpp
        message_handler.cpp
        type_info.cpp
        type_registry.cpp
        xml_type_loader.cpp)
# The type loader parses with QDomDocument, which no public header shows.
target_link_libraries(yovolib PRIVATE Qt5::Xml)
