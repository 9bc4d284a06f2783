# API reference from the public headers' comments: `cmake --build <dir>
# --target docs` writes HTML to <dir>/docs/html. The target exists only where
# doxygen is installed; nothing else depends on it, so the build and the tests
# never need doxygen.
# A build tree configured while doxygen was installed keeps its path; forget
# it once the program is gone, so that the docs target simply disappears.
if(DOXYGEN_EXECUTABLE AND NOT EXISTS "${DOXYGEN_EXECUTABLE}")
  unset(DOXYGEN_EXECUTABLE CACHE)
endif()
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()

set(DOXYGEN_PROJECT_NAME "VLMdApi")
set(DOXYGEN_PROJECT_NUMBER ${PROJECT_VERSION})
set(DOXYGEN_PROJECT_BRIEF "Client library for Shanghai and Shenzhen Level-2 market data")
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/README.md)
set(DOXYGEN_GENERATE_HTML YES)
set(DOXYGEN_GENERATE_LATEX NO)
set(DOXYGEN_EXTRACT_ALL YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
set(DOXYGEN_FULL_PATH_NAMES NO)
# The export macro is noise in the reference.
set(DOXYGEN_ENABLE_PREPROCESSING YES)
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED "VLMDAPI_EXPORT=")
doxygen_add_docs(docs
  ${PROJECT_SOURCE_DIR}/include/VelmarMdApi.h
  ${PROJECT_SOURCE_DIR}/include/VelmarMdStruct.h
  ${PROJECT_SOURCE_DIR}/README.md
  ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "API reference in ${PROJECT_BINARY_DIR}/docs/html")
