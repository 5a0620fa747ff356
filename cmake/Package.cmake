# Debian packages by CPack, one a component: `./dev package`.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL lib dev programs)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CONTACT "mrib developers <mrib@example.org>")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/stage.cmake)
set(CPACK_MRIB_SOURCE ${PROJECT_SOURCE_DIR})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

# mrib_package(COMPONENT NAME SECTION DESCRIPTION): the first line of the description is the synopsis.
macro(mrib_package component name section description)
  set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${component}_PACKAGE_SOURCE mrib)
  set(CPACK_DEBIAN_${component}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${component}_DESCRIPTION ${description})
endmacro()

mrib_package(LIB libmrib0 libs "multicast RIB engine (shared library)
libmrib works out by which interface and next hop packets from a source must
come in (reverse-path forwarding): it resolves configured multicast routes on
the unicast routes and follows every change. It has no loop and no I/O.
.
The processor must have SSE4.2 and popcnt (x86-64-v2).")
mrib_package(DEV libmrib-dev libdevel "multicast RIB engine (development files)
libmrib works out by which interface and next hop packets from a source must
come in (reverse-path forwarding).
.
This package has the headers for C and C++, and what CMake and pkg-config read.")
mrib_package(PROGRAMS mrib net "multicast RIB of this machine
The multicast RIB says by which interface and next hop packets from a source
must come in (reverse-path forwarding). mribd keeps it in step with the links,
addresses and routes of the kernel and with static multicast routes; mrib shows
it, explains it, and follows its changes.")

# Who is linked with the library needs one of the same minor version: the next one's has another name.
set(CPACK_DEBIAN_LIB_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SHLIBDEPS ON)
math(EXPR next_minor "${PROJECT_VERSION_MINOR} + 1")
set(minor ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
file(CONFIGURE OUTPUT debian/shlibs @ONLY
  CONTENT "libmrib @minor@ libmrib0 (>= @PROJECT_VERSION@), libmrib0 (<< @PROJECT_VERSION_MAJOR@.@next_minor@~)\n")
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/shlibs
  ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_DEV_DEPENDS lib)
set(CPACK_COMPONENT_PROGRAMS_DEPENDS lib)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_DEPENDS passwd)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/conffiles
  ${PROJECT_SOURCE_DIR}/packaging/postinst ${PROJECT_SOURCE_DIR}/packaging/prerm ${PROJECT_SOURCE_DIR}/packaging/postrm)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SUGGESTS graphviz)  # mrib graph --format svg, mrib report

include(CPack)
