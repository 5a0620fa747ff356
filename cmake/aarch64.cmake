set(MACHINE aarch64)
set(TRIPLE aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/foreign.cmake)
