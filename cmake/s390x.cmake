set(MACHINE s390x)
set(TRIPLE s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/foreign.cmake)
