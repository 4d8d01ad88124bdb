include(GNUInstallDirs)

# A pane is a bundle folder that contains a plug-in.
#
#   kelvane_pane(About FOLDER Host/About LINKS kelvane_desktop Qt6::Widgets
#                RESOURCES Resources/about.svg HELPERS kelvane-enable)
#
# creates About.prefPane below Bundles/ of the build folder, and installs it. The folder's Info.plist.in is the
# information dictionary, with the project's version filled in; its .cpp files are the plug-in, the target
# kelvane_pane_about. RESOURCES are files: those below a folder Resources/ keep their relative path, others, such as
# generated ones, go to the top of the bundle's resources. HELPERS are targets of programs, each under its own
# output name.
function(kelvane_pane name)
    cmake_parse_arguments(PANE "" "FOLDER" "LINKS;RESOURCES;HELPERS" ${ARGN})
    string(TOLOWER "kelvane_pane_${name}" target)
    set(folder "${PROJECT_SOURCE_DIR}/${PANE_FOLDER}")
    set(bundle "${PROJECT_BINARY_DIR}/Bundles/${name}.prefPane")
    configure_file("${folder}/Info.plist.in" "${bundle}/Info.plist" @ONLY)

    file(GLOB sources CONFIGURE_DEPENDS "${folder}/*.cpp")
    add_library(${target} MODULE ${sources})
    target_link_libraries(${target} PRIVATE kelvane_options ${PANE_LINKS})
    # Exports only its two symbols: a plug-in contains its own copy of the modules that it links. Undefined
    # symbols are errors here, and not when the plug-in is loaded.
    set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME "${name}" CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON LIBRARY_OUTPUT_DIRECTORY "${bundle}/PlugIns")
    if(NOT KELVANE_SANITIZE)
        target_link_options(${target} PRIVATE -Wl,--no-undefined -Wl,--exclude-libs,ALL)
    endif()

    set(copies)
    foreach(resource IN LISTS PANE_RESOURCES)
        cmake_path(ABSOLUTE_PATH resource BASE_DIRECTORY "${folder}" NORMALIZE)
        cmake_path(RELATIVE_PATH resource BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE place)
        if(place MATCHES "/Resources/(.+)$")
            set(place "Resources/${CMAKE_MATCH_1}")
        else()
            cmake_path(GET resource FILENAME place)
            set(place "Resources/${place}")
        endif()
        add_custom_command(OUTPUT "${bundle}/${place}" DEPENDS "${resource}" VERBATIM
            COMMAND ${CMAKE_COMMAND} -E copy "${resource}" "${bundle}/${place}")
        list(APPEND copies "${bundle}/${place}")
    endforeach()
    foreach(helper IN LISTS PANE_HELPERS)
        set(copy "${bundle}/Helpers/$<TARGET_FILE_NAME:${helper}>")
        add_custom_command(OUTPUT "${bundle}/Helpers/.${helper}" DEPENDS ${helper} VERBATIM
            COMMAND ${CMAKE_COMMAND} -E make_directory "${bundle}/Helpers"
            COMMAND ${CMAKE_COMMAND} -E copy "$<TARGET_FILE:${helper}>" "${copy}"
            COMMAND ${CMAKE_COMMAND} -E touch "${bundle}/Helpers/.${helper}")
        list(APPEND copies "${bundle}/Helpers/.${helper}")
    endforeach()
    add_custom_target(${target}_bundle ALL DEPENDS ${copies})
    add_dependencies(${target}_bundle ${target})

    install(DIRECTORY "${bundle}" DESTINATION "${CMAKE_INSTALL_DATADIR}/kelvane/PreferencePanes"
        USE_SOURCE_PERMISSIONS PATTERN ".kelvane*" EXCLUDE)
endfunction()
