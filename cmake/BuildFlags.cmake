# The flags every target of this project compiles and links with, carried by
# one INTERFACE target instead of directory-wide options: a parent project that
# adds this one with add_subdirectory keeps its own flags, and the installed
# package carries none of these (VLMdApi is a shared library and links the
# target privately, so nothing of it reaches the exported interface).
add_library(vlmd_build_flags INTERFACE)

# Exact floating point: book prices must compare equal on every CPU, and a
# fused multiply-add rounds differently from the two operations it replaces.
# Tests need it as much as the library: they work out the expected prices and
# values with the same arithmetic and compare them exactly. The simulators'
# markets must come out the same on every machine from the same seed.
target_compile_options(vlmd_build_flags INTERFACE -Wall -Wextra -ffp-contract=off)

# Sanitizer and fuzz instrumentation travel the same way, and so reach every
# target that links together: a program without AddressSanitizer cannot load
# an instrumented libVLMdApi.so (the runtime must come first), and
# ThreadSanitizer reports false races about accesses it did not see. Debian's
# prebuilt GoogleTest and benchmark libraries stay uninstrumented, as they
# always were.
if(VLMD_SANITIZE STREQUAL "address")
  target_compile_options(vlmd_build_flags INTERFACE
    -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(vlmd_build_flags INTERFACE -fsanitize=address,undefined)
elseif(VLMD_SANITIZE STREQUAL "thread")
  target_compile_options(vlmd_build_flags INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(vlmd_build_flags INTERFACE -fsanitize=thread)
elseif(NOT VLMD_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VLMD_SANITIZE must be empty, address or thread")
endif()

# Fuzz build: everything compiled with libFuzzer's coverage and the address and
# undefined-behaviour checks; the targets in tests/fuzz add the fuzzer's main.
if(VLMD_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "VLMD_BUILD_FUZZ needs clang (-DCMAKE_CXX_COMPILER=clang++)")
  endif()
  target_compile_options(vlmd_build_flags INTERFACE
    -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
    -fno-sanitize-recover=undefined)
  target_link_options(vlmd_build_flags INTERFACE -fsanitize=address,undefined)
endif()

# Links vlmd_build_flags privately into every target that compiles or links
# code in folder DIR and the folders below it. The top-level CMakeLists.txt
# calls it once, after all folders are added, so that no target (a new tool or
# test included) can miss a flag its correctness depends on. Folders outside
# the project, such as Debian's GoogleTest sources built by the cross build,
# keep their own flags.
function(vlmd_link_build_flags dir)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|STATIC_LIBRARY|SHARED_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
      target_link_libraries(${target} PRIVATE vlmd_build_flags)
    endif()
  endforeach()
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(sub IN LISTS subdirs)
    cmake_path(IS_PREFIX PROJECT_SOURCE_DIR "${sub}" NORMALIZE inside)
    if(inside)
      vlmd_link_build_flags(${sub})
    endif()
  endforeach()
endfunction()
