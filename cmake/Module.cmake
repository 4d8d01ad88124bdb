# A module is one folder that is one link target. Its headers are reachable only through a folder of links that the
# target publishes, so a source file can include nothing but its own module and the modules that it links: an include
# in the other direction does not find its file.
#
#   kelvane_module(Common FOLDER Common LINKS kelvane_preferences)
#
# creates the static library kelvane_common from every .cpp directly in the folder, except main.cpp and the main
# files listed in PROGRAMS. A sub-folder is a separate module.
function(kelvane_module name)
    cmake_parse_arguments(MODULE "" "FOLDER" "LINKS;PRIVATE_LINKS;PROGRAMS" ${ARGN})
    string(TOLOWER "kelvane_${name}" target)
    set(folder "${PROJECT_SOURCE_DIR}/${MODULE_FOLDER}")
    file(GLOB sources CONFIGURE_DEPENDS "${folder}/*.cpp")
    foreach(program IN LISTS MODULE_PROGRAMS ITEMS main.cpp)
        list(REMOVE_ITEM sources "${folder}/${program}")
    endforeach()
    kelvane_publish_headers("${MODULE_FOLDER}" "${PROJECT_BINARY_DIR}/modules/${name}")

    if(sources)
        add_library(${target} STATIC ${sources})
        set(scope PUBLIC)
        target_link_libraries(${target} PRIVATE kelvane_options ${MODULE_PRIVATE_LINKS})
        set_property(TARGET ${target} PROPERTY POSITION_INDEPENDENT_CODE ON)
    else()
        add_library(${target} INTERFACE)
        set(scope INTERFACE)
    endif()
    target_include_directories(${target} ${scope} "${PROJECT_BINARY_DIR}/modules/${name}")
    target_link_libraries(${target} ${scope} ${MODULE_LINKS})
endfunction()

# Links each header directly in `folder` to the same relative path below `destination`.
function(kelvane_publish_headers folder destination)
    file(GLOB headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.h")
    file(REMOVE_RECURSE "${destination}")
    file(MAKE_DIRECTORY "${destination}/${folder}")
    foreach(header IN LISTS headers)
        get_filename_component(file "${header}" NAME)
        file(CREATE_LINK "${header}" "${destination}/${folder}/${file}" SYMBOLIC)
    endforeach()
endfunction()
