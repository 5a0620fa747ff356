# What goes with the programs: the manual, the schemas of what they print and speak, completion, an example.
foreach(section 1 5 7 8)
  file(GLOB pages CONFIGURE_DEPENDS docs/man/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
file(GLOB schemas CONFIGURE_DEPENDS share/schemas/*.schema.json)
install(FILES ${schemas} host/service/org.mrib.varlink DESTINATION ${CMAKE_INSTALL_DATADIR}/mrib)
install(FILES share/mrib.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/mrib/examples)
install(FILES share/completion/mrib.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME mrib)
# Where zsh looks: for what distributions install, and for the rest.
set(zsh_folder site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(zsh_folder vendor-completions)
endif()
install(FILES share/completion/_mrib DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder})
