# corvid_asio: standalone Asio (Debian's header-only package) for the engine and the downloader,
# with the settings every user of it must share.
add_library(corvid_asio INTERFACE)
# Asio decides how to allocate handlers from whichever header came first, and 1.22 frees some
# aligned_alloc memory through operator delete: plain operator new keeps every translation unit
# and both sides of the allocation the same.
target_compile_definitions(corvid_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED
                                                 ASIO_DISABLE_STD_ALIGNED_ALLOC)
if(CMAKE_CROSSCOMPILING)
    # The MinGW sysroot has no Asio, and /usr/include cannot go on a MinGW include path: give the
    # cross compiler Asio's headers alone, linked into a folder of their own.
    find_path(CORVID_ASIO_HOST_INCLUDE asio.hpp PATHS /usr/include NO_DEFAULT_PATH
              NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    set(asio_dir ${CMAKE_BINARY_DIR}/asio-include)
    file(MAKE_DIRECTORY ${asio_dir})
    file(CREATE_LINK ${CORVID_ASIO_HOST_INCLUDE}/asio.hpp ${asio_dir}/asio.hpp SYMBOLIC)
    file(CREATE_LINK ${CORVID_ASIO_HOST_INCLUDE}/asio ${asio_dir}/asio SYMBOLIC)
    target_include_directories(corvid_asio SYSTEM INTERFACE ${asio_dir})
endif()
if(WIN32)
    target_link_libraries(corvid_asio INTERFACE ws2_32 mswsock)
else()
    find_package(Threads REQUIRED)
    target_link_libraries(corvid_asio INTERFACE Threads::Threads)
endif()
if("thread" IN_LIST CORVID_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Asio fences its handler calls with std::atomic_thread_fence, which GCC's ThreadSanitizer
    # warns it does not model; Asio's own locks are instrumented all the same.
    target_compile_options(corvid_asio INTERFACE -Wno-tsan)
endif()
