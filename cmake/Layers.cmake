# Options that every target of this project compiles with.
add_library(mrib_flags INTERFACE)
target_compile_options(mrib_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=")
# Nobody replaces a function of this library by one of the same name, so calls inside it need not allow for that.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(mrib_flags INTERFACE -fno-semantic-interposition)
endif()
# The trie counts bits on every look-up: the popcnt instruction is worth a baseline of x86-64-v2 (2009).
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  target_compile_options(mrib_flags INTERFACE -march=x86-64-v2)
endif()

# mrib_layer(NAME ROOT dir INCLUDE dir... [LOWER layer...])
# One object library and include roots of its own a layer, so that an upward include does not compile.
function(mrib_layer name)
  cmake_parse_arguments(L "" "ROOT" "INCLUDE;LOWER" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${L_ROOT}/*.cc)
  add_library(${name} OBJECT ${sources})
  target_link_libraries(${name} PRIVATE mrib_flags)
  foreach(include IN LISTS L_INCLUDE)
    target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/${include}>)
  endforeach()
  foreach(lower IN LISTS L_LOWER)
    target_include_directories(${name} PUBLIC $<TARGET_PROPERTY:${lower},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
endfunction()
