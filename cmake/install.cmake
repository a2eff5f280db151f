# What `cmake --install` lays out: the headers, the library with the stand-ins that were built, the
# programs with their manual, the CMake package, the pkg-config files and the documents.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# To whose Debian package belongs what is named from here on: library, development or tools.
macro(install_as component)
    set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME ${component})
endmacro()

install_as(development)
set(platform_headers ${CMAKE_INSTALL_INCLUDEDIR}/kvo/platform)
target_include_directories(kvo_media_headers INTERFACE
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> $<INSTALL_INTERFACE:${platform_headers}>)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY platform/ DESTINATION ${platform_headers}
    FILES_MATCHING PATTERN *.h PATTERN host EXCLUDE PATTERN service EXCLUDE)
install(FILES
    impl/tvhw/ImageSinkTvhwImpl.h
    impl/tvhw/ResourceClient.h
    impl/tvhw/ThreadAnnotations.h
    impl/tvhw/VideoDecoderClientWrapperResource.h
    impl/tvhw/VideoEncoderClientWrapperResource.h
    impl/tvhw/VideoScalerClientTvhwImpl.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tvhw)

# The log reader, a script and what it is made of, and the sweep.
install_as(tools)
foreach(script tvhw-log tvhw-sweep)
    configure_file(tools/${script} installed/${script} @ONLY)
    install(PROGRAMS ${CMAKE_CURRENT_BINARY_DIR}/installed/${script}
        DESTINATION ${CMAKE_INSTALL_BINDIR})
endforeach()
install(DIRECTORY tools/tvhw_log DESTINATION ${CMAKE_INSTALL_DATADIR}/tvhw-log
    FILES_MATCHING PATTERN *.py PATTERN *.html)

install_as(library)
set_target_properties(kvo_media_hw_tvhw PROPERTIES EXPORT_NAME media_hw_tvhw)
set(targets kvo_media_hw_tvhw kvo_media_headers)
if(TVHW_HOST_PLATFORM)
    set_target_properties(kvo_media_host_platform PROPERTIES EXPORT_NAME media_host_platform)
    get_target_property(stand_ins kvo_media_host_platform INTERFACE_LINK_LIBRARIES)
    list(APPEND targets kvo_media_host_platform ${stand_ins})
    install(FILES platform/host/HostPlatform.h DESTINATION ${platform_headers}/host
        COMPONENT development)
endif()
install(TARGETS ${targets} EXPORT kvo_media_hw_tvhwTargets)

# The programs, as far as they are built. The service's client library lies below the other one,
# where the loader sees it only when it is told to.
install_as(tools)
file(RELATIVE_PATH libraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
foreach(program tvhw-platform-check tvhw-resource-manager tvhw-play)
    if(TARGET ${program})
        target_compile_definitions(${program} PRIVATE TVHW_VERSION="${PROJECT_VERSION}")
        if(TVHW_HOST_PLATFORM)
            set_target_properties(${program} PROPERTIES INSTALL_RPATH $ORIGIN/${libraries})
        endif()
        install(TARGETS ${program})
    endif()
endforeach()
if(TVHW_SERVICE)
    set_target_properties(kvo_hal_crm_service PROPERTIES INSTALL_RPATH $ORIGIN/..)
    install(TARGETS kvo_hal_crm_service DESTINATION ${CMAKE_INSTALL_LIBDIR}/tvhw-service)
    set(client_library ${libraries}/tvhw-service)
    configure_file(platform/service/tvhw-run installed/tvhw-run @ONLY)
    install(PROGRAMS ${CMAKE_CURRENT_BINARY_DIR}/installed/tvhw-run
        DESTINATION ${CMAKE_INSTALL_BINDIR})
    # Started by the bus or as a user's service; they name the program where it is installed.
    foreach(unit kvo.tvhw.ResourceManager.service tvhw-resource-manager.service)
        install(CODE "
            get_filename_component(bindir \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR} ABSOLUTE)
            configure_file(${PROJECT_SOURCE_DIR}/platform/service/${unit}.in
                ${CMAKE_CURRENT_BINARY_DIR}/installed/${unit} @ONLY)")
    endforeach()
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/installed/kvo.tvhw.ResourceManager.service
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/services)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/installed/tvhw-resource-manager.service
        DESTINATION lib/systemd/user)
endif()

if(TVHW_SERVICE AND TVHW_DEMO)
    include(cmake/manual.cmake)
endif()

install_as(development)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/kvo_media_hw_tvhw)
install(EXPORT kvo_media_hw_tvhwTargets NAMESPACE kvo:: DESTINATION ${package})
configure_package_config_file(cmake/kvo_media_hw_tvhwConfig.cmake.in
    kvo_media_hw_tvhwConfig.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(kvo_media_hw_tvhwConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/kvo_media_hw_tvhwConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/kvo_media_hw_tvhwConfigVersion.cmake
    cmake/PlatformLibraries.cmake
    DESTINATION ${package})

# From the file's own directory, since the prefix may be chosen as late as on installation.
file(RELATIVE_PATH prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix ${prefix})
function(install_pkg_config name)
    configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

# The linker follows what the library needs of the platform: to the stand-ins beside it, or to where
# the platform's own libraries were found.
if(TVHW_HOST_PLATFORM)
    set(platform_libs "-Wl,-rpath-link,\${libdir}")
    list(TRANSFORM stand_ins PREPEND -l)
    list(JOIN stand_ins " " stand_in_libs)
    install_pkg_config(kvo_media_host_platform)
else()
    list(TRANSFORM kvo_platform_libraries REPLACE "(.+)/.*" "-L\\1 -Wl,-rpath-link,\\1"
        OUTPUT_VARIABLE platform_libs)
    list(REMOVE_DUPLICATES platform_libs)
    list(JOIN platform_libs " " platform_libs)
endif()
install_pkg_config(kvo_media_hw_tvhw)

install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN Doxyfile EXCLUDE)
install(DIRECTORY examples/libav-codec examples/minimal-platform examples/minimal-player
        examples/player-test
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
include(cmake/debian.cmake)
