# Run by cpack on the installed trees before the packages are made: compresses the manual pages.
file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/*${CPACK_PACKAGING_INSTALL_PREFIX}/share/man/man?/*.?)
foreach(page ${pages})
    execute_process(COMMAND gzip -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
