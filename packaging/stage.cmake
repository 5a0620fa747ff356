# Run by CPack on the staged files of all components: adds what Debian wants in every package, and takes away what would
# differ from one build to the next.
set(release ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC) # that of SOURCE_DATE_EPOCH
string(TIMESTAMP year "%Y" UTC)
file(READ /usr/share/doc/libcli11-dev/copyright cli11)
file(READ /usr/share/doc/nlohmann-json3-dev/copyright json)

# document(PACKAGE FOLDER): its copyright and changelogs.
function(document package folder)
  set(compiled_in "")
  if(package STREQUAL "mrib")
    set(compiled_in "\nThe programs contain code of CLI11, whose terms are:\n\n${cli11}
and of JSON for Modern C++, whose terms are:\n\n${json}")
  endif()
  configure_file(${CPACK_MRIB_SOURCE}/packaging/copyright.in ${folder}/copyright @ONLY)
  configure_file(${CPACK_MRIB_SOURCE}/packaging/changelog.in ${folder}/changelog.Debian @ONLY)
  configure_file(${CPACK_MRIB_SOURCE}/CHANGELOG.md ${folder}/changelog COPYONLY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component})
  document(${package} ${root}/usr/share/doc/${package})
  if(EXISTS ${root}/usr/share/zsh/site-functions) # where zsh looks in /usr/local; in /usr it is another place
    file(RENAME ${root}/usr/share/zsh/site-functions ${root}/usr/share/zsh/vendor-completions)
  endif()
  if(EXISTS ${root}/usr/share/doc/mrib/examples/mrib.rt_protos) # where ip(8) looks, whatever the prefix
    file(MAKE_DIRECTORY ${root}/etc/iproute2/rt_protos.d)
    file(RENAME ${root}/usr/share/doc/mrib/examples/mrib.rt_protos ${root}/etc/iproute2/rt_protos.d/mrib.conf)
  endif()
  file(GLOB compressed ${root}/usr/share/man/man*/* ${root}/usr/share/doc/*/changelog*)
  execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND find ${root} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND chmod -R u=rwX,go=rX ${root} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
