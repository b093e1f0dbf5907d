yovo_add_sources(
    PUBLIC_HEADERS
        ycompress.h
        yhmac_provider.h
        ymd5.h
        yrc4.h
        ysha256.h
    PRIVATE_HEADERS
        ydigest_p.h
        ysha256_p.h
    SOURCES
        ycompress.cpp
        yhmac_provider.cpp
        ymd5.cpp
        yrc4.cpp
        ysha256.cpp)

# The SHA-256 rounds on the processor's SHA instructions: only this file may use them, since the
# library chooses it at run time and must still load on processors without them.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|i.86)$")
    yovo_add_sources(SOURCES ysha256_shani.cpp)
    set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/ysha256_shani.cpp
        PROPERTIES COMPILE_OPTIONS "-msha;-msse4.1")
endif()

target_link_libraries(yovolib PRIVATE ZLIB::ZLIB)
