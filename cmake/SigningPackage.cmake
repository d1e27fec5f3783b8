# Debian packages with CPack (make package), one per install component:
#
#   signing      the plug-in, signing-host, man pages and documents
#   signing-dev  the public headers, signing.pc and the CMake package files
#   signing-dbg  the debug information of the plug-in and of signing-host
#
# CPack packs exactly what the install rules install, so the packages and
# `make install` cannot drift apart, and no debian/ folder with its own copy
# of the file list has to be kept in step. dpkg-shlibdeps works out the
# library dependencies (libssl3, libstdc++6, libc6, libgcc-s1).

set(SIGNING_DEBIAN_REVISION 1)
set(SIGNING_DEBIAN_PACKAGES Runtime=signing Development=signing-dev Debug=signing-dbg)

if(SIGNING_DEBIAN_FILES)
    set(changelog ${CMAKE_BINARY_DIR}/debian/changelog.Debian.gz)
    add_custom_command(OUTPUT ${changelog}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/debian
        COMMAND gzip -9 -n -c ${CMAKE_SOURCE_DIR}/packaging/debian/changelog > ${changelog}
        DEPENDS ${CMAKE_SOURCE_DIR}/packaging/debian/changelog
        VERBATIM)
    add_custom_target(signing_debian_changelog ALL DEPENDS ${changelog})
    foreach(entry ${SIGNING_DEBIAN_PACKAGES})
        string(REPLACE "=" ";" pair ${entry})
        list(GET pair 0 component)
        list(GET pair 1 package)
        install(FILES ${CMAKE_SOURCE_DIR}/packaging/debian/copyright ${changelog}
                DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
    endforeach()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME signing)
set(CPACK_PACKAGE_VENDOR "signing.so maintainers")
set(CPACK_PACKAGE_CONTACT "signing.so maintainers <maintainers@signing.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# CPack puts a summary other than its default in front of every package's
# description; each package's own first line is its synopsis instead.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES OFF) # the installed files are stripped already
set(CPACK_COMPONENTS_ALL Runtime Development Debug)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${SIGNING_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${PROJECT_HOMEPAGE_URL}")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME signing)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# The key download runs whichever of the two the system has.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "wget | curl")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "${PROJECT_DESCRIPTION}
signing.so is loaded by an installer with dlopen. For one installation run
it obtains an armored OpenPGP public key, from a local file or downloaded
once with wget or curl from a key service, and verifies the RSA signatures
and digests of every RPM package the installer is about to install.
.
This package holds the plug-in and signing-host, a reference host that
loads it as an installer does.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME signing-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Headers and build files for hosts of the signing.so plug-in
The C header of the plug-in's entry points, the C++ session interface a
host implements, a pkg-config file and a CMake package configuration.")

set(CPACK_DEBIAN_DEBUG_PACKAGE_NAME signing-dbg)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SECTION debug)
set(CPACK_COMPONENT_DEBUG_DEPENDS Runtime)
set(CPACK_COMPONENT_DEBUG_DESCRIPTION
    "Debug information of the signing.so plug-in and signing-host
The information split off the installed, stripped files; gdb finds it
through their debug links.")

include(CPack)
