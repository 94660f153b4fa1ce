find_program(GDBUS_CODEGEN gdbus-codegen)
if(NOT GDBUS_CODEGEN)
    message(FATAL_ERROR "gdbus-codegen is missing: it is in Debian's libglib2.0-dev-bin")
endif()

# fa_add_bus_binding(<target> <interface> <C name> <file>)
#
# Makes <target>, an object library of the code that gdbus-codegen generates from <interface>.xml in
# the current folder. <file> is its header's name without ".h", as it is included; the functions and
# types are named after <C name>. Who compiles with the header depends on <target>, because a
# generated header does not exist before.
function(fa_add_bus_binding target interface c_name file)
    set(description ${CMAKE_CURRENT_SOURCE_DIR}/${interface}.xml)
    set(include_dir ${PROJECT_BINARY_DIR}/generated)
    set(generated ${include_dir}/${file})
    set(codegen ${GDBUS_CODEGEN} --c-generate-autocleanup all
        --annotate ${interface} org.gtk.GDBus.C.Name ${c_name})
    get_filename_component(folder ${generated} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(
        OUTPUT ${generated}.h ${generated}.c
        COMMAND ${codegen} --header --output ${generated}.h ${description}
        COMMAND ${codegen} --body --output ${generated}.c ${description}
        DEPENDS ${description}
        COMMENT "Generating ${file} from ${interface}.xml"
        VERBATIM)
    add_library(${target} OBJECT ${generated}.c ${generated}.h)
    target_link_libraries(${target} PUBLIC PkgConfig::GIO)
    target_include_directories(${target} PUBLIC ${include_dir})
endfunction()
