# fa_optional_part(<option> <part> <default> <pkg-config module> <Debian package>...)
#
# The option of a part of the tree that needs libraries which the rest does without: any number of
# pairs of what is needed and the Debian package that holds it. A pkg-config module becomes an imported
# target (PkgConfig::JSON_GLIB for json-glib-1.0); the path of a JavaScript file below the folder of
# such files goes into a variable (CHART_JS_CHART_MIN_JS for chart.js/chart.min.js). Where one is
# missing, a part that nobody asked for is left out with a line, and a part that somebody asked for is
# an error.
macro(fa_optional_part option part default)
    set(missing "")
    set(needs ${ARGN})
    while(needs)
        list(GET needs 0 module)
        list(GET needs 1 package)
        list(REMOVE_AT needs 0 1)
        string(REGEX REPLACE "-[0-9.]+$" "" prefix ${module})
        string(TOUPPER ${prefix} prefix)
        string(MAKE_C_IDENTIFIER ${prefix} prefix)
        if(module MATCHES "\\.js$")
            # The machine that builds has it, whichever it builds for.
            find_file(${prefix} ${module} PATHS /usr/share/javascript NO_CMAKE_FIND_ROOT_PATH)
            set(${prefix}_FOUND ${${prefix}})
        else()
            pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${module})
        endif()
        if(NOT ${prefix}_FOUND)
            string(APPEND missing " ${module} (Debian: ${package})")
        endif()
    endwhile()

    if(NOT missing)
        option(${option} "Build ${part}" ${default})
    elseif(${option})
        message(FATAL_ERROR "${option}=${${option}} asks for ${part}, which needs what is missing:${missing}")
    elseif(NOT DEFINED ${option} AND ${default})
        # Not kept in the cache, so that the next configuration looks again.
        message(STATUS "Left out: ${part}, which needs what is missing:${missing}")
    endif()
endmacro()
