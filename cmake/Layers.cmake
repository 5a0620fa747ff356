# Options that every target of this project compiles with. Names of files are those in this folder, wherever it is, and
# also where a compiler cache makes them relative.
file(RELATIVE_PATH to_source ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR})
string(REGEX REPLACE "([^/])$" "\\1/" to_source "${to_source}")
add_library(mrib_flags INTERFACE)
target_compile_options(mrib_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=" "-fmacro-prefix-map=${to_source}=")
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=(address|thread)")
  target_compile_definitions(mrib_flags INTERFACE MRIB_SANITIZED)
endif()
# Nobody replaces a function of this library by one of the same name, so calls inside it need not allow for that.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(mrib_flags INTERFACE -fno-semantic-interposition)
endif()
# The trie counts bits on every look-up: the popcnt instruction is worth a baseline of x86-64-v2 (2009). It comes
# before the builder's own flags, so that another -march among these wins.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  string(PREPEND CMAKE_CXX_FLAGS "-march=x86-64-v2 ")
endif()

# mrib_layer(NAME ROOT dir INCLUDE dir... [INTERNAL])
# A layer above those named before it: one object library, mrib_NAME, with the sources below ROOT and include roots of
# its own, so that an upward include does not compile. The headers are installed unless they are INTERNAL.
# Afterwards MRIB_LAYERS has the libraries and MRIB_PUBLIC_ROOTS what is installed.
function(mrib_layer name)
  cmake_parse_arguments(L "INTERNAL" "ROOT" "INCLUDE" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${L_ROOT}/*.cc)
  add_library(mrib_${name} OBJECT ${sources})
  target_link_libraries(mrib_${name} PRIVATE mrib_flags)
  foreach(include IN LISTS L_INCLUDE)
    target_include_directories(mrib_${name} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/${include}>)
  endforeach()
  foreach(lower IN LISTS MRIB_LAYERS)
    target_include_directories(mrib_${name} PUBLIC $<TARGET_PROPERTY:${lower},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
  set(MRIB_LAYERS ${MRIB_LAYERS} mrib_${name} PARENT_SCOPE)
  if(NOT L_INTERNAL)
    set(roots ${MRIB_PUBLIC_ROOTS} ${L_INCLUDE})
    list(REMOVE_DUPLICATES roots)
    set(MRIB_PUBLIC_ROOTS ${roots} PARENT_SCOPE)
  endif()
endfunction()
