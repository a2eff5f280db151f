# The loader finds the libraries of a package by itself.
file(GLOB_RECURSE files ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*)
list(FILTER files INCLUDE REGEX "/bin/|\\.so")
foreach(file ${files})
    if(NOT IS_SYMLINK ${file})
        file(RPATH_REMOVE FILE ${file})
    endif()
endforeach()
