# Run by cpack on the installed tree before the packages are made: compresses the manual pages.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*/man/man?/*.?)
foreach(page ${pages})
    execute_process(COMMAND gzip -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
