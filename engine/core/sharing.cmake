# The engine's sharing side: the upload server (protocol and Asio sessions) and the engine's XML
# texts, browse host, and the servent's view of the file index. A library of its own beside
# corvid_engine, which knows nothing of it: whoever runs a node plugs the two together.
find_package(ZLIB REQUIRED)
add_library(corvid_sharing STATIC
    ${CMAKE_CURRENT_LIST_DIR}/upload_protocol.cpp
    ${CMAKE_CURRENT_LIST_DIR}/token_bucket.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_registry.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_server.cpp
    ${CMAKE_CURRENT_LIST_DIR}/engine_texts.cpp
    ${CMAKE_CURRENT_LIST_DIR}/library_share_index.cpp
    ${CMAKE_CURRENT_LIST_DIR}/browse_host.cpp
    ${CMAKE_CURRENT_LIST_DIR}/engine_text_sources.cpp
    ${CMAKE_CURRENT_LIST_DIR}/push_giv.cpp)
target_include_directories(corvid_sharing PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(corvid_sharing PUBLIC corvid_library corvid_engine corvid_asio ZLIB::ZLIB)
