# The platform's own libraries, as targets of the same names, where CMake finds libraries: in
# CMAKE_LIBRARY_PATH, CMAKE_SYSROOT, CMAKE_FIND_ROOT_PATH or CMAKE_PREFIX_PATH. Their files are
# listed in kvo_platform_libraries.
set(kvo_platform_libraries)
foreach(name kvo_hal_crm kvo_hal_photo kvo_hal_vbe kvo_hal_vsc kvo_media_hw_common kvo_media_utils)
    if(NOT TARGET ${name})
        find_library(${name}_LIBRARY ${name} REQUIRED)
        add_library(${name} UNKNOWN IMPORTED)
        set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${${name}_LIBRARY})
        list(APPEND kvo_platform_libraries ${${name}_LIBRARY})
        execute_process(COMMAND ${CMAKE_READELF} -d ${${name}_LIBRARY} OUTPUT_VARIABLE entries)
        if(NOT entries MATCHES "SONAME")
            message(WARNING "${${name}_LIBRARY} has no SONAME: what is linked to it needs it by this path. "
                "Link it with -Wl,-soname,lib${name}.so, or call patchelf --set-soname lib${name}.so")
        endif()
    endif()
endforeach()
