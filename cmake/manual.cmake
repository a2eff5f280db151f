# A manual page and the completion of options in bash for each installed program, both from what it
# says when it is asked for --help. Without help2man there are no pages.
find_program(HELP2MAN help2man)
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/manual)
set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
function(install_manual name program what_for)
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/completions/${name}
        "complete -o default -F _longopt ${name}\n")
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/completions/${name} DESTINATION ${completions})
    if(HELP2MAN)
        set(page ${CMAKE_CURRENT_BINARY_DIR}/manual/${name}.1)
        add_custom_command(OUTPUT ${page}.gz VERBATIM DEPENDS ${program}
            COMMAND ${HELP2MAN} --no-info --section 1 --output ${page} --name ${what_for}
                --version-string ${PROJECT_VERSION} ${program}
            COMMAND gzip -9nf ${page})
        set_property(GLOBAL APPEND PROPERTY manual_pages ${page}.gz)
        install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
endfunction()

install_manual(tvhw-log ${PROJECT_SOURCE_DIR}/tools/tvhw-log
    "tell from a log what happened to each codec")
install_manual(tvhw-sweep ${PROJECT_SOURCE_DIR}/tools/tvhw-sweep
    "reclaim a player's core at every call, and fail every call")
install_manual(tvhw-run ${CMAKE_CURRENT_BINARY_DIR}/installed/tvhw-run
    "run programs that share the cores of one resource manager")
install_manual(tvhw-play $<TARGET_FILE:tvhw-play> "play a video file on a codec core")
install_manual(tvhw-platform-check $<TARGET_FILE:tvhw-platform-check>
    "check a platform for what the media library relies on")
install_manual(tvhw-resource-manager $<TARGET_FILE:tvhw-resource-manager>
    "hand out codec cores and display ports to processes")
get_property(pages GLOBAL PROPERTY manual_pages)
add_custom_target(manual ALL DEPENDS ${pages})
