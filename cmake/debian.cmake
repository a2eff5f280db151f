# Debian packages by `cpack`: the library with the platform's stand-ins, what programs are built with,
# and the programs.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/without-rpath.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_CONTACT "Maintainers of libkvo_media_hw_tvhw <maintainers@kvo-media.example>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)  # Whatever the umask.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR}/impl/tvhw
    ${CMAKE_CURRENT_BINARY_DIR}/platform/host)

# Lintian wants a changelog of the packages' own.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/changelog
    "kvo-media-hw-tvhw (${PROJECT_VERSION}) stable; urgency=medium\n\n"
    "  * Version ${PROJECT_VERSION}; CHANGELOG.md of the development package tells what is new.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
execute_process(COMMAND gzip -9nkf ${CMAKE_CURRENT_BINARY_DIR}/changelog COMMAND_ERROR_IS_FATAL ANY)

# debian_package(COMPONENT PACKAGE DEPENDS DESCRIPTION...): its own name and what it is for.
function(debian_package component package depends)
    list(JOIN ARGN "\n" description)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS ${depends} PARENT_SCOPE)
    set(CPACK_COMPONENT_${upper}_DESCRIPTION ${description} PARENT_SCOPE)
    install(FILES cmake/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()

set(library libkvo-media-hw-tvhw)
set(same "${library} (= ${PROJECT_VERSION})")
debian_package(library ${library} "" "codec cores, scaler and stills of a TV platform"
    "Wrappers that take a codec core before a codec is configured and give it"
    "back, a client of the video scaler and a sink of still pictures, with"
    "stand-ins for the platform of the chip.")
debian_package(development ${library}-dev "${same}" "codec cores of a TV platform: development"
    "Headers, CMake package, pkg-config files, examples and documents.")
debian_package(tools tvhw-tools "${same}, python3, dbus" "codec cores of a TV platform: programs"
    "A player, the resource manager of several processes with a program that"
    "runs players on it, a check of a platform, a test of players and a"
    "reader of logs.")
include(CPack)
