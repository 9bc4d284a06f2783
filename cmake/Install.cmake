# What `cmake --install` puts in place: the public headers, the shared library
# (with its SONAME links on Linux; the DLL in bin/ and its import library in
# lib/ on Windows), a CMake package with the imported target VLMdApi::VLMdApi
# and a pkg-config file. Nothing else of the build tree is installed.
include(CMakePackageConfigHelpers)

set(VLMD_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VLMdApi
    CACHE STRING "Where the CMake package files go, relative to the prefix")
set(VLMD_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    CACHE STRING "Where vlmdapi.pc goes, relative to the prefix")

install(TARGETS VLMdApi EXPORT VLMdApiTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES
  ${PROJECT_SOURCE_DIR}/include/VelmarMdApi.h
  ${PROJECT_SOURCE_DIR}/include/VelmarMdStruct.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT VLMdApiTargets
  NAMESPACE VLMdApi::
  DESTINATION ${VLMD_INSTALL_CMAKEDIR})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/VLMdApiConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VLMdApiConfig.cmake
  INSTALL_DESTINATION ${VLMD_INSTALL_CMAKEDIR})
# 1.x releases keep the binary interface of 1.0: the order of the virtual
# operations and the layout of the records.
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/VLMdApiConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/VLMdApiConfig.cmake
  ${PROJECT_BINARY_DIR}/VLMdApiConfigVersion.cmake
  DESTINATION ${VLMD_INSTALL_CMAKEDIR})

# The pkg-config file finds the prefix from its own place, so a tree installed
# with `cmake --install --prefix DIR` or moved afterwards still works. Each
# component of the relative folder turns into one step up.
if(IS_ABSOLUTE "${VLMD_INSTALL_PKGCONFIGDIR}")
  set(VLMD_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  string(REGEX REPLACE "[^/]+" ".." _vlmd_up "${VLMD_INSTALL_PKGCONFIGDIR}")
  set(VLMD_PC_PREFIX "\${pcfiledir}/${_vlmd_up}")
endif()
foreach(_vlmd_dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_vlmd_dir}}")
    set(VLMD_PC_${_vlmd_dir} "${CMAKE_INSTALL_${_vlmd_dir}}")
  else()
    set(VLMD_PC_${_vlmd_dir} "\${prefix}/${CMAKE_INSTALL_${_vlmd_dir}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/vlmdapi.pc.in ${PROJECT_BINARY_DIR}/vlmdapi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vlmdapi.pc DESTINATION ${VLMD_INSTALL_PKGCONFIGDIR})
