# A Debian machine of another kind: built with its cross compiler, run under qemu-user. `./dev portability` unpacks
# the libraries of that machine. Included with MACHINE and TRIPLE set.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${MACHINE})
set(CMAKE_C_COMPILER ${TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${TRIPLE}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${MACHINE})
set(CMAKE_LIBRARY_ARCHITECTURE ${TRIPLE})

set(foreign_root ${CMAKE_CURRENT_LIST_DIR}/../build/${MACHINE}-root)
set(CMAKE_FIND_ROOT_PATH ${foreign_root} /usr/${TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${foreign_root})
set(ENV{PKG_CONFIG_LIBDIR} ${foreign_root}/usr/lib/${TRIPLE}/pkgconfig)
# Libraries that libraries there need.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${foreign_root}/usr/lib/${TRIPLE})
