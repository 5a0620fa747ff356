# The programs, and what belongs to them on the system. Systemd and the shells have their own fixed places.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME programs)
install(TARGETS mrib_program)
install(TARGETS mribd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})

file(GLOB pages CONFIGURE_DEPENDS docs/man/*.[1-8])
foreach(page IN LISTS pages)
  string(REGEX MATCH "[1-8]$" section ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

file(GLOB schemas CONFIGURE_DEPENDS share/schemas/*.schema.json)
install(FILES ${schemas} host/service/org.mrib.varlink DESTINATION ${CMAKE_INSTALL_DATADIR}/mrib)
install(FILES share/mrib.conf packaging/mribd-buffer.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES share/completion/mrib.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME mrib)
install(FILES share/completion/_mrib DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES packaging/mribd.service DESTINATION lib/systemd/system)
install(FILES packaging/mrib.sysusers DESTINATION lib/sysusers.d RENAME mrib.conf)
