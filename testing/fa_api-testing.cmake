# fa_api_add_set_test(NAME name COMMAND command [argument...]
#                     [PROFILE file] [SCENARIO file] [REPLAY file] [RECORD file]
#                     [TIMEOUT seconds] [OPTIONS option...])
#
# Adds a test that runs the command, a target that is there or a program, on a simulated set of its
# own. It passes where the command ends with status 0 and the set has nothing to complain of.
#   PROFILE   what the set's platform answers
#   SCENARIO  rules: what the set does out of the ordinary
#   REPLAY    a recording that the set plays back and compares with
#   RECORD    a file to write a recording to
#   TIMEOUT   ends the command, 120 seconds where none is given
#   OPTIONS   more options of "fa-set-simulator run"
# Files are relative to the current source folder, the one of RECORD to the current binary folder.
# FA_API_SET_SIMULATOR names the simulated set's program where it is not beside the package.
function(fa_api_add_set_test)
    cmake_parse_arguments(PARSE_ARGV 0 test "" "NAME;PROFILE;SCENARIO;REPLAY;RECORD;TIMEOUT"
                          "COMMAND;OPTIONS")
    if(NOT DEFINED test_NAME OR NOT DEFINED test_COMMAND OR DEFINED test_UNPARSED_ARGUMENTS
       OR DEFINED test_KEYWORDS_MISSING_VALUES)
        message(FATAL_ERROR "fa_api_add_set_test takes NAME and COMMAND, and then PROFILE, SCENARIO, "
                            "REPLAY, RECORD, TIMEOUT, OPTIONS, each with a value; not: ${ARGV}")
    endif()
    if(";${test_COMMAND};${test_OPTIONS};" MATCHES ";;.")
        message(FATAL_ERROR "fa_api_add_set_test: an empty argument cannot be handed on")
    endif()
    if(NOT FA_API_SET_SIMULATOR)
        message(FATAL_ERROR "fa_api_add_set_test: fa-set-simulator is not found. Install the "
                            "package fa-api-tools, or name the program in FA_API_SET_SIMULATOR")
    endif()
    if(NOT DEFINED test_TIMEOUT)
        set(test_TIMEOUT 120)
    elseif(NOT test_TIMEOUT MATCHES "^[1-9][0-9]*$")
        message(FATAL_ERROR "fa_api_add_set_test: TIMEOUT is in whole seconds, not ${test_TIMEOUT}")
    endif()
    set(options --timeout ${test_TIMEOUT})
    foreach(input PROFILE SCENARIO REPLAY)
        if(DEFINED test_${input})
            get_filename_component(file "${test_${input}}" ABSOLUTE)
            if(NOT EXISTS "${file}")
                message(FATAL_ERROR "fa_api_add_set_test: ${input}: there is no ${file}")
            endif()
            string(TOLOWER ${input} option)
            list(APPEND options --${option} "${file}")
        endif()
    endforeach()
    if(DEFINED test_RECORD)
        get_filename_component(file "${test_RECORD}" ABSOLUTE
                               BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
        list(APPEND options --record "${file}")
    endif()
    list(POP_FRONT test_COMMAND program)
    if(TARGET ${program})
        set(program "$<TARGET_FILE:${program}>")
    endif()
    add_test(NAME ${test_NAME}
             COMMAND "${FA_API_SET_SIMULATOR}" run ${options} ${test_OPTIONS} --
                     "${program}" ${test_COMMAND})
    # The set ends the command in good order; ctest only sees to a set that hangs.
    math(EXPR limit "${test_TIMEOUT} + 30")
    set_tests_properties(${test_NAME} PROPERTIES TIMEOUT ${limit})
endfunction()
