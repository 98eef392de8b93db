# Man pages and bash completion of the programs. The pages are made of what the programs tell of themselves.

set(TAV_MAN_PAGES)

# tav_man_page(PROGRAM [SUBCOMMAND...])
macro(tav_man_page program)
  string(JOIN "-" name ${program} ${ARGN})
  set(page "${PROJECT_BINARY_DIR}/man/${name}.1")
  add_custom_command(
    OUTPUT "${page}"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${PROJECT_BINARY_DIR}/man"
    COMMAND sh "${PROJECT_SOURCE_DIR}/packaging/man/page.sh" "${page}" ${PROJECT_VERSION} $<TARGET_FILE:${program}> ${ARGN}
    DEPENDS ${program} "${PROJECT_SOURCE_DIR}/packaging/man/page.sh" "${PROJECT_SOURCE_DIR}/packaging/man/page.awk"
    COMMENT "Man page ${name}.1")
  list(APPEND TAV_MAN_PAGES "${page}")
endmacro()

tav_man_page(tavctl)
foreach(subcommand mime checksum hmac base64 run capture archive cpu-limit query krb doctor)
  tav_man_page(tavctl ${subcommand})
endforeach()
foreach(way encode decode)
  tav_man_page(tavctl base64 ${way})
endforeach()
foreach(way create extract)
  tav_man_page(tavctl archive ${way})
endforeach()
foreach(way renew run show)
  tav_man_page(tavctl krb ${way})
endforeach()
tav_man_page(endpoint_scan)
foreach(subcommand scan restore list)
  tav_man_page(endpoint_scan ${subcommand})
endforeach()
tav_man_page(reputation_server)

add_custom_target(tav_man ALL DEPENDS ${TAV_MAN_PAGES})
install(FILES ${TAV_MAN_PAGES} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT Tools)
# bash finds the completion of a command in the file of its name.
foreach(program tavctl endpoint_scan reputation_server)
  install(
    FILES "${PROJECT_SOURCE_DIR}/packaging/completion/tavutils.bash"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    RENAME ${program}
    COMPONENT Tools)
endforeach()
