yovo_add_sources(
    PUBLIC_HEADERS
        ip_verifier.h
        message_simple_server.h
        network_peer.h
    PRIVATE_HEADERS
        ip_verifier_p.h
        message_simple_server_p.h
        network_peer_p.h
    SOURCES
        ip_verifier.cpp
        message_simple_server.cpp
        network_peer.cpp
    POSIX_SOURCES
        ip_verifier_posix.cpp
        message_simple_server_posix.cpp
        network_peer_posix.cpp)
# The peer and the server are QTcpSocket and QTcpServer: daemons see the network module.
target_link_libraries(yovolib PUBLIC Qt5::Network)

yovo_add_sources(
    PUBLIC_HEADERS
        http_request.h
        web_api.h
    SOURCES
        http_request.cpp
        web_api.cpp)

# The public headers show the network classes and, in the web API's reply, the DOM classes.
target_link_libraries(yovolib PUBLIC Qt5::Network Qt5::Xml)
