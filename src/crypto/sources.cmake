yovo_add_sources(
    PUBLIC_HEADERS
        ycompress.h
        yhmac_provider.h
        ymd5.h
        yrc4.h
        ysha256.h
    PRIVATE_HEADERS
        ydigest_p.h
    SOURCES
        ycompress.cpp
        yhmac_provider.cpp
        ymd5.cpp
        yrc4.cpp
        ysha256.cpp)

target_link_libraries(yovolib PRIVATE ZLIB::ZLIB)
