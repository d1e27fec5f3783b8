# Install rules (GNUInstallDirs), in three components:
#
#   Runtime      the plug-in, signing-host, the man pages and the documents
#   Development  the public headers, signing.pc and the CMake package files
#   Debug        the debug information split off the installed programs
#
# The build tree keeps its unstripped files for debugging; what is installed
# is a stripped copy that names its debug file with a .gnu_debuglink, made
# after every link.

include(CMakePackageConfigHelpers)

option(SIGNING_DEBIAN_FILES "Install each Debian package's copyright and changelog files (make package)" OFF)

set(SIGNING_DEBUG_INSTALL_ROOT lib/debug)
set(SIGNING_STAGE_DIR ${CMAKE_BINARY_DIR}/stripped)

# signing_split_debug(<target> <install dir below the prefix> <permissions>...)
function(signing_split_debug target destination)
    if(target STREQUAL "signing")
        set(file_name signing.so)
    else()
        set(file_name ${target})
    endif()
    set(debug_dir ${SIGNING_STAGE_DIR}/debug)
    # The command runs inside it, and a Makefile build changes into it before
    # any of the command's own steps could make it.
    file(MAKE_DIRECTORY ${debug_dir})
    add_custom_command(OUTPUT ${SIGNING_STAGE_DIR}/${file_name} ${debug_dir}/${file_name}.debug
        COMMAND ${CMAKE_COMMAND} -E make_directory ${SIGNING_STAGE_DIR} ${debug_dir}
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug --compress-debug-sections $<TARGET_FILE:${target}>
                ${debug_dir}/${file_name}.debug
        COMMAND ${CMAKE_STRIP} --strip-unneeded --remove-section=.comment --remove-section=.note
                -o ${SIGNING_STAGE_DIR}/${file_name} $<TARGET_FILE:${target}>
        COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${file_name}.debug ${SIGNING_STAGE_DIR}/${file_name}
        DEPENDS ${target}
        WORKING_DIRECTORY ${debug_dir}
        COMMENT "Splitting the debug information off ${file_name}"
        VERBATIM)
    add_custom_target(${target}_stripped ALL DEPENDS ${SIGNING_STAGE_DIR}/${file_name})
    install(FILES ${SIGNING_STAGE_DIR}/${file_name} DESTINATION ${destination} COMPONENT Runtime
            PERMISSIONS ${ARGN})
    # Where gdb looks for it: the debug root, then the file's full path.
    if(IS_ABSOLUTE ${destination})
        set(full_destination ${destination})
    else()
        set(full_destination ${CMAKE_INSTALL_PREFIX}/${destination})
    endif()
    install(FILES ${debug_dir}/${file_name}.debug
            DESTINATION ${SIGNING_DEBUG_INSTALL_ROOT}${full_destination} COMPONENT Debug)
endfunction()

signing_split_debug(signing ${SIGNING_PLUGIN_INSTALL_DIR} OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
signing_split_debug(signing-host ${CMAKE_INSTALL_BINDIR}
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Public headers.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/signing DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT Development FILES_MATCHING PATTERN "*.h")

# pkg-config: the include folder and the plug-in's path. There is nothing to
# link: a host loads the plug-in with dlopen.
set(SIGNING_PC_LIBS "")
foreach(library ${CMAKE_DL_LIBS})
    string(APPEND SIGNING_PC_LIBS " -l${library}")
endforeach()
string(STRIP "${SIGNING_PC_LIBS}" SIGNING_PC_LIBS)
configure_file(${CMAKE_SOURCE_DIR}/cmake/signing.pc.in ${CMAKE_BINARY_DIR}/signing.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/signing.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

# find_package(signing): the imported targets signing::signing (headers) and
# signing::plugin (the plug-in file), relocatable with the installed tree.
set(SIGNING_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/signing)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/signingConfig.cmake.in
    ${CMAKE_BINARY_DIR}/signingConfig.cmake
    INSTALL_DESTINATION ${SIGNING_CMAKE_INSTALL_DIR}
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR SIGNING_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/signingConfigVersion.cmake
    COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${CMAKE_BINARY_DIR}/signingConfig.cmake ${CMAKE_BINARY_DIR}/signingConfigVersion.cmake
        DESTINATION ${SIGNING_CMAKE_INSTALL_DIR} COMPONENT Development)

# Man pages, compressed as Debian wants them; the installed plug-in's path
# is filled in.
set(SIGNING_PLUGIN_PATH ${SIGNING_PLUGIN_INSTALL_PATH})
foreach(page signing-host.1 signing.so.7)
    string(REGEX REPLACE ".*\\.([0-9])$" "\\1" section ${page})
    configure_file(${CMAKE_SOURCE_DIR}/docs/man/${page} ${CMAKE_BINARY_DIR}/man/${page} @ONLY)
    add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/man/${page}.gz
        COMMAND gzip -9 -n -c ${CMAKE_BINARY_DIR}/man/${page} > ${CMAKE_BINARY_DIR}/man/${page}.gz
        DEPENDS ${CMAKE_BINARY_DIR}/man/${page}
        VERBATIM)
    list(APPEND SIGNING_MAN_PAGES ${CMAKE_BINARY_DIR}/man/${page}.gz)
    install(FILES ${CMAKE_BINARY_DIR}/man/${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
            COMPONENT Runtime)
endforeach()
add_custom_target(signing_man_pages ALL DEPENDS ${SIGNING_MAN_PAGES})

# Documents. A Debian package carries the licence in its copyright file.
set(SIGNING_DOCUMENTS README.md ARCHITECTURE.md docs/integrating.md)
if(NOT SIGNING_DEBIAN_FILES)
    list(PREPEND SIGNING_DOCUMENTS LICENSE)
endif()
foreach(document ${SIGNING_DOCUMENTS})
    if(EXISTS ${CMAKE_SOURCE_DIR}/${document})
        install(FILES ${CMAKE_SOURCE_DIR}/${document} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Runtime)
    endif()
endforeach()
