# add_faulty_copies(<target> <patches> <tree> <library> [<object library>...]): for each patch in
# the folder <patches> a copy of <library> with that fault, in a folder of the patch's name below
# <patches> where the caller builds. <tree> is the folder of the sources that is copied and patched.
# What a patch leaves alone is taken from the library, and the object libraries that it is made of,
# as they were built. <target> builds the copies.
function(add_faulty_copies target patches tree library)
    file(GLOB files CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${patches}/*.patch)
    file(GLOB_RECURSE originals CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${tree}/*)
    set(objects)
    set(sources)
    foreach(part ${library} ${ARGN})
        list(APPEND objects $<TARGET_OBJECTS:${part}>)
        get_target_property(names ${part} SOURCES)
        get_target_property(from ${part} SOURCE_DIR)
        foreach(name ${names})
            get_filename_component(name ${name} ABSOLUTE BASE_DIR ${from})
            file(RELATIVE_PATH name ${PROJECT_SOURCE_DIR} ${name})
            list(APPEND sources ${name})
        endforeach()
    endforeach()
    get_target_property(linked ${library} LINK_LIBRARIES)
    list(REMOVE_ITEM linked ${ARGN} tvhw_warnings)  # A fault may leave something unused.
    get_target_property(version ${library} SOVERSION)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${files})
    foreach(patch ${files})
        get_filename_component(fault ${patch} NAME_WE)
        set(folder ${CMAKE_CURRENT_BINARY_DIR}/${patches}/${fault})
        file(STRINGS ${patch} changed REGEX "^\\+\\+\\+ ")
        string(REPLACE "+++ b/" "" changed ${changed})
        if(changed MATCHES "\\.h$")
            set(rebuilt ${sources})
            set(kept)
        else()
            set(rebuilt ${changed})
            get_filename_component(name ${changed} NAME)
            set(kept $<FILTER:${objects},EXCLUDE,/${name}.o$>)
        endif()
        list(TRANSFORM rebuilt PREPEND ${folder}/)
        add_custom_command(OUTPUT ${rebuilt}
            COMMAND ${CMAKE_COMMAND} -E rm -rf ${folder}/${tree}
            COMMAND ${CMAKE_COMMAND} -E copy_directory ${PROJECT_SOURCE_DIR}/${tree} ${folder}/${tree}
            COMMAND patch --quiet --fuzz=0 --strip=1 --directory=${folder} --input=${patch}
            DEPENDS ${patch} ${originals})
        add_library(${target}_${fault} SHARED EXCLUDE_FROM_ALL ${rebuilt} ${kept})
        set_target_properties(${target}_${fault} PROPERTIES
            OUTPUT_NAME $<TARGET_FILE_BASE_NAME:${library}> LIBRARY_OUTPUT_DIRECTORY ${folder})
        if(version)
            set_target_properties(${target}_${fault} PROPERTIES SOVERSION ${version})
        endif()
        target_include_directories(${target}_${fault} BEFORE PRIVATE ${folder}/${tree})
        target_compile_options(${target}_${fault}
            PRIVATE $<TARGET_PROPERTY:${library},COMPILE_OPTIONS>)
        target_link_options(${target}_${fault} PRIVATE $<TARGET_PROPERTY:${library},LINK_OPTIONS>)
        target_link_libraries(${target}_${fault} PRIVATE ${linked})
        add_dependencies(${target} ${target}_${fault})
    endforeach()
endfunction()
