# The library, its headers, and what find_package and pkg-config read. All of it can be moved together afterwards.
set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mrib)
install(TARGETS mrib EXPORT mribTargets)
foreach(root IN LISTS MRIB_PUBLIC_ROOTS)
  install(DIRECTORY ${root}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mrib FILES_MATCHING PATTERN "*.h"
    PATTERN "PrefixTrieNode.h" EXCLUDE PATTERN "inside" EXCLUDE)
endforeach()
install(EXPORT mribTargets NAMESPACE mrib:: DESTINATION ${cmake_dir})
configure_package_config_file(cmake/mribConfig.cmake.in mribConfig.cmake INSTALL_DESTINATION ${cmake_dir})
write_basic_package_version_file(mribConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mribConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/mribConfigVersion.cmake
  DESTINATION ${cmake_dir})

# mrib.pc names its directories relative to where it lies, except those that were given as absolute.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(MRIB_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH up /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  string(REGEX REPLACE "/$" "" up "${up}")
  set(MRIB_PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  set(MRIB_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(MRIB_PC_${dir} ${CMAKE_INSTALL_${dir}})
  endif()
endforeach()
configure_file(cmake/mrib.pc.in mrib.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mrib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
