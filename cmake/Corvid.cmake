# Build rules shared by every subsystem: flags, tests, fuzz targets and benchmarks.

function(corvid_apply_global_flags)
    # Warnings are errors in every preset, for our code only (GoogleTest is added before this).
    add_compile_options(-Wall -Wextra -Werror)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        # GCC 12 at -O3 reports overlapping copies inside std::string's operator+ that cannot
        # happen (GCC bug 105651); the warning is fixed in GCC 13.
        add_compile_options(-Wno-restrict)
    endif()
    if(CORVID_SANITIZE)
        list(JOIN CORVID_SANITIZE "," sanitizers)
        add_compile_options(-fsanitize=${sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all)
        add_link_options(-fsanitize=${sanitizers})
    endif()
    if(CORVID_FUZZ)
        add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                            -fno-sanitize-recover=all)
        add_link_options(-fsanitize=address,undefined)
    endif()
    if(WIN32)
        # Windows 7 is the oldest system we build for; Unicode off: the plug-in speaks ANSI inside.
        add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX)
        # Linker warnings are errors too. On i686 the .def files name stdcall exports without
        # their @N decoration on purpose, so the linker's fix-up of those names is expected.
        add_link_options(-Wl,--fatal-warnings)
        if(CMAKE_SIZEOF_VOID_P EQUAL 4)
            add_link_options(-Wl,--enable-stdcall-fixup)
        endif()
    endif()
endfunction()

# corvid_add_test(name SOURCES ... [LIBS ...] [CONCURRENCY] [WINDOWS])
#   A GoogleTest program; natively each test case becomes one ctest test.
#   Portable tests run natively only. WINDOWS tests are Windows-face tests: built by the cross presets
#   and run under Wine by win64. CONCURRENCY tests are also built by the ThreadSanitizer preset,
#   which builds nothing else.
function(corvid_add_test name)
    cmake_parse_arguments(T "CONCURRENCY;WINDOWS" "" "SOURCES;LIBS" ${ARGN})
    if(CORVID_FUZZ OR NOT CORVID_TESTS)
        return()
    endif()
    if(T_WINDOWS AND NOT WIN32)
        return()
    endif()
    if(NOT T_WINDOWS AND CMAKE_CROSSCOMPILING)
        return()
    endif()
    if(CORVID_CONCURRENCY_TESTS_ONLY AND NOT T_CONCURRENCY)
        return()
    endif()
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gtest_main)
    set(labels unit)
    if(T_CONCURRENCY)
        list(APPEND labels concurrency)
    endif()
    if(T_WINDOWS)
        set(labels wine)
    endif()
    if(T_WINDOWS)
        # One ctest test per program, judged by GoogleTest's own verdict lines rather than by
        # listing its cases through Wine first: a program Wine cannot start exits 0 and prints
        # nothing, which must count as a failure, never as a suite with no tests.
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES LABELS "${labels}" TIMEOUT 600
                             PASS_REGULAR_EXPRESSION "\\[  PASSED  \\] [0-9]+ tests?\\."
                             FAIL_REGULAR_EXPRESSION "\\[  FAILED  \\]")
    else()
        gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                             PROPERTIES LABELS "${labels}" TIMEOUT 300)
    endif()
endfunction()

# corvid_add_fuzzer(name SOURCES ... [LIBS ...] [CORPUS dir])
#   A libFuzzer target, built by the fuzz preset only. scripts/test runs every target listed in
#   fuzzers.txt (its program's path and its seed corpus) for a short while.
function(corvid_add_fuzzer name)
    cmake_parse_arguments(F "" "CORPUS" "SOURCES;LIBS" ${ARGN})
    if(NOT CORVID_FUZZ)
        return()
    endif()
    add_executable(fuzz_${name} ${F_SOURCES})
    target_link_libraries(fuzz_${name} PRIVATE ${F_LIBS})
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    if(NOT F_CORPUS)
        set(F_CORPUS ${CMAKE_SOURCE_DIR}/fuzz/corpus/${name})
    endif()
    set_property(GLOBAL APPEND PROPERTY CORVID_FUZZERS
                 "${CMAKE_CURRENT_BINARY_DIR}/fuzz_${name} ${F_CORPUS}")
    get_property(all GLOBAL PROPERTY CORVID_FUZZERS)
    list(JOIN all "\n" lines)
    file(WRITE ${CMAKE_BINARY_DIR}/fuzzers.txt "${lines}\n")
endfunction()

# corvid_add_bench(name SOURCES ... [LIBS ...]): built by the release preset only.
function(corvid_add_bench name)
    cmake_parse_arguments(B "" "" "SOURCES;LIBS" ${ARGN})
    if(NOT CORVID_BENCH)
        return()
    endif()
    add_executable(bench_${name} ${B_SOURCES})
    target_link_libraries(bench_${name} PRIVATE ${B_LIBS})
endfunction()
