# What the folders of tests are built and registered with.
include(GoogleTest)

# What every test is built with.
add_library(test_base INTERFACE)
target_include_directories(test_base INTERFACE ${PROJECT_SOURCE_DIR}/tests)
target_compile_definitions(test_base INTERFACE TESTS="${PROJECT_SOURCE_DIR}/tests/")
target_link_libraries(test_base INTERFACE fa_api::fa_api fa_platform GTest::gtest_main GTest::gmock
                                          PkgConfig::GIO PkgConfig::GIO_UNIX Threads::Threads
                                          fa_warnings ${CMAKE_DL_LIBS})
# Not optimized, because that takes half the time of building them.
target_compile_options(test_base INTERFACE -O0)

set(case_timeout 120)
if(CMAKE_CROSSCOMPILING)
    set(case_timeout 600)  # an emulated processor is slow
endif()

# Object libraries, because what takes the place of a function of the platform or of GLib must be in
# the program itself, asked for or not.
function(fa_add_test_support name)
    add_library(${name} OBJECT ${ARGN})
    target_link_libraries(${name} PUBLIC test_base)
endfunction()

# fa_add_test(NAME SUPPORT... SOURCES ...): each case becomes a process of its own, because the
# library's state is per process.
function(fa_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SUPPORT;SOURCES")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE test_base ${arg_SUPPORT})
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT ${case_timeout}
                         PROPERTIES TIMEOUT ${case_timeout})
endfunction()

# fa_begin_early(CASE): of a program that is built; its cases are known only then.
function(fa_begin_early case)
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/costs.cmake
         "set_tests_properties(${case} PROPERTIES COST 4)\n")
    set_property(DIRECTORY APPEND PROPERTY
                 TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/costs.cmake)
endfunction()

# fa_give_locales(NAME): TEST_LOCALES becomes a folder with de_DE.UTF-8, which groups digits and has a
# decimal comma, wherever the machine has none.
function(fa_give_locales name)
    set(locales ${CMAKE_CURRENT_BINARY_DIR}/locales)
    add_custom_command(OUTPUT ${locales}/de_DE.UTF-8/LC_NUMERIC
                       COMMAND ${CMAKE_COMMAND} -E make_directory ${locales}
                       COMMAND localedef -i de_DE -f UTF-8 ${locales}/de_DE.UTF-8)
    add_custom_target(${name}_locales DEPENDS ${locales}/de_DE.UTF-8/LC_NUMERIC)
    add_dependencies(${name} ${name}_locales)
    target_compile_definitions(${name} PRIVATE TEST_LOCALES="${locales}")
endfunction()

# fa_add_replay(NAME FUZZER CORPUS LIBRARY...): what the fuzzer begins with, and what it has found,
# with any compiler.
function(fa_add_replay name fuzzer corpus)
    add_executable(${name} ${PROJECT_SOURCE_DIR}/fuzz/replay.cpp ${PROJECT_SOURCE_DIR}/fuzz/${fuzzer})
    target_link_libraries(${name} PRIVATE ${ARGN} fa_warnings)
    add_test(NAME ${name} COMMAND ${name} ${PROJECT_SOURCE_DIR}/fuzz/corpus/${corpus})
endfunction()

# fa_add_simulator_tests(FILE): each case of the file becomes a test, SimulatedSet.NAME.
function(fa_add_simulator_tests path)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
    file(STRINGS ${path} lines REGEX "^class|^    def test")
    foreach(line ${lines})
        if(line MATCHES "class ([A-Za-z]+)")
            set(class ${CMAKE_MATCH_1})
        elseif(line MATCHES "test_([a-z_]+)")
            set(test SimulatedSet.${CMAKE_MATCH_1})
            add_test(NAME ${test} COMMAND ${SYSTEM_PYTHON} -B ${path} $<TARGET_FILE:fa-set-simulator>
                                          ${class}.${CMAKE_MATCH_0})
            set_tests_properties(${test} PROPERTIES TIMEOUT ${case_timeout} ENVIRONMENT
                "EXAMPLES=${PROJECT_BINARY_DIR}/examples;SANITIZED=${FA_API_SANITIZE}")
        endif()
    endforeach()
endfunction()
