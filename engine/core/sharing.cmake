# The engine's sharing side: the upload server (protocol and Asio sessions) and the engine's XML
# texts. A library of its own so the node and the tests can use it without the rest of the engine.
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
add_library(corvid_sharing STATIC
    ${CMAKE_CURRENT_LIST_DIR}/upload_protocol.cpp
    ${CMAKE_CURRENT_LIST_DIR}/token_bucket.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_registry.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_server.cpp
    ${CMAKE_CURRENT_LIST_DIR}/engine_texts.cpp)
target_include_directories(corvid_sharing PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_definitions(corvid_sharing PUBLIC ASIO_STANDALONE ASIO_NO_DEPRECATED
                                                 ASIO_DISABLE_STD_ALIGNED_ALLOC)
target_link_libraries(corvid_sharing PUBLIC corvid_library ZLIB::ZLIB Threads::Threads)
if(WIN32)
    target_link_libraries(corvid_sharing PUBLIC ws2_32 mswsock)
endif()
