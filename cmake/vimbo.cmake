# Helpers that keep every folder's CMakeLists.txt down to its source list.

find_program(VIMBO_CCACHE ccache)
if(VIMBO_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${VIMBO_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${VIMBO_CCACHE})
endif()

add_library(vimbo_warnings INTERFACE)
target_compile_options(vimbo_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # g++ 12 sees overlapping copies in plain string concatenation (GCC bug 105651).
    target_compile_options(vimbo_warnings INTERFACE -Wno-restrict)
endif()
# Under sanitizers g++ warns of paths that cannot be taken: those builds are for their tests, not for warnings.
if(VIMBO_WERROR AND (NOT VIMBO_SANITIZE OR CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
    target_compile_options(vimbo_warnings INTERFACE -Werror)
endif()

if(VIMBO_SANITIZE)
    add_compile_options(-fsanitize=${VIMBO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${VIMBO_SANITIZE})
endif()
if(VIMBO_FUZZERS)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# vimbo_module(name SOURCES files... LINK modules...): the static library of one module.
function(vimbo_module name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
    add_library(vimbo_${name} STATIC ${ARG_SOURCES})
    target_include_directories(vimbo_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(vimbo_${name} PUBLIC ${ARG_LINK} PRIVATE vimbo_warnings ${ARG_PRIVATE_LINK})
endfunction()

# vimbo_test(name SOURCES files... LINK libraries...): one GoogleTest binary, registered with CTest case by case.
# No test reads the settings of whoever runs it.
function(vimbo_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    add_executable(${name}_tests ${ARG_SOURCES})
    target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name}_tests PRIVATE ${ARG_LINK} vimbo_warnings GTest::gtest_main)
    gtest_discover_tests(${name}_tests DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 ENVIRONMENT VIMBO_SETTINGS=)
endfunction()

# vimbo_fuzzer(name source LINK libraries...): one libFuzzer binary; CTest replays its seed corpus.
function(vimbo_fuzzer name source)
    cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
    add_executable(fuzz_${name} ${source})
    target_link_libraries(fuzz_${name} PRIVATE ${ARG_LINK} vimbo_warnings)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    add_test(NAME fuzz_replay_${name}
             COMMAND ${PROJECT_SOURCE_DIR}/scripts/replay_seeds.sh $<TARGET_FILE:fuzz_${name}>
                     ${CMAKE_CURRENT_SOURCE_DIR}/seeds/${name})
endfunction()
