# What `cmake --install` lays out: the headers, the library with the stand-ins that were built, the
# CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(platform_headers ${CMAKE_INSTALL_INCLUDEDIR}/kvo/platform)
target_include_directories(kvo_media_headers INTERFACE
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> $<INSTALL_INTERFACE:${platform_headers}>)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY platform/ DESTINATION ${platform_headers}
    FILES_MATCHING PATTERN *.h PATTERN host EXCLUDE)
install(FILES
    impl/tvhw/ImageSinkTvhwImpl.h
    impl/tvhw/ResourceClient.h
    impl/tvhw/ThreadAnnotations.h
    impl/tvhw/VideoDecoderClientWrapperResource.h
    impl/tvhw/VideoEncoderClientWrapperResource.h
    impl/tvhw/VideoScalerClientTvhwImpl.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tvhw)

set_target_properties(kvo_media_hw_tvhw PROPERTIES EXPORT_NAME media_hw_tvhw)
set(targets kvo_media_hw_tvhw kvo_media_headers)
if(TVHW_HOST_PLATFORM)
    list(APPEND targets kvo_hal_crm kvo_hal_photo kvo_hal_vbe kvo_hal_vsc kvo_media_hw_common
        kvo_media_utils)
    install(FILES platform/host/HostPlatform.h DESTINATION ${platform_headers}/host)
endif()
install(TARGETS ${targets} EXPORT kvo_media_hw_tvhwTargets)

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
configure_file(cmake/kvo_media_hw_tvhw.pc.in kvo_media_hw_tvhw.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kvo_media_hw_tvhw.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
