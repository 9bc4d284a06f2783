# Third-party dependencies, all from Debian packages.
find_package(Threads REQUIRED)

# moodycamel ConcurrentQueue (libconcurrentqueue-dev) is header-only and ships
# no CMake package. The cross build can't search /usr/include as a whole, so it
# sees the package's folder through a link in the build tree.
find_path(VLMD_CONCURRENTQUEUE_DIR concurrentqueue/concurrentqueue.h
  PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)
if(NOT VLMD_CONCURRENTQUEUE_DIR)
  message(FATAL_ERROR "concurrentqueue/concurrentqueue.h not found: apt-get install libconcurrentqueue-dev")
endif()
add_library(vlmd_concurrentqueue INTERFACE)
if(CMAKE_CROSSCOMPILING)
  set(_cq_dir ${CMAKE_BINARY_DIR}/third-party-include)
  file(MAKE_DIRECTORY ${_cq_dir})
  file(CREATE_LINK ${VLMD_CONCURRENTQUEUE_DIR}/concurrentqueue ${_cq_dir}/concurrentqueue SYMBOLIC)
  target_include_directories(vlmd_concurrentqueue SYSTEM INTERFACE $<BUILD_INTERFACE:${_cq_dir}>)
else()
  target_include_directories(vlmd_concurrentqueue SYSTEM INTERFACE
    $<BUILD_INTERFACE:${VLMD_CONCURRENTQUEUE_DIR}>)
endif()

# CLI11 (libcli11-dev) parses the tools' command lines; it is header-only.
# The cross build finds its package outside the mingw root and, as above,
# sees its folder through a link rather than the whole of /usr/include.
if(VLMD_BUILD_TOOLS)
  find_package(CLI11 CONFIG REQUIRED NO_CMAKE_FIND_ROOT_PATH)
  if(CMAKE_CROSSCOMPILING)
    get_target_property(_cli11_include CLI11::CLI11 INTERFACE_INCLUDE_DIRECTORIES)
    file(CREATE_LINK ${_cli11_include}/CLI ${_cq_dir}/CLI SYMBOLIC)
    set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${_cq_dir})
  endif()
endif()

if(VLMD_BUILD_TESTS)
  if(CMAKE_CROSSCOMPILING)
    # Debian's GoogleTest sources, built by the cross toolchain.
    set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  else()
    find_package(GTest REQUIRED)
  endif()
endif()

if(VLMD_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
