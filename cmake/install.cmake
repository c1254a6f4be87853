# cmake --install: the libraries, brimora, the public headers and the CMake
# package brimora_python, which another project finds with
# find_package(brimora_python CONFIG) and links as brimora::embed (the
# embedding kit, which brings brimora::teskcore).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Installed programs and libraries find their neighbours in lib/, and the
# extension finds libpython where it was linked from.
set_target_properties(teskcore brimora_embed brimora_python PROPERTIES
  INSTALL_RPATH "$ORIGIN" INSTALL_RPATH_USE_LINK_PATH TRUE)
set_target_properties(brimora PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
# The extension is loaded with dlopen, beside libbrimora_embed: not linked.
set_target_properties(brimora_embed PROPERTIES EXPORT_NAME embed)

install(TARGETS teskcore brimora_embed EXPORT brimora_python_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS brimora_python LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS brimora RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/host/include/tesk ${CMAKE_SOURCE_DIR}/embed/include/brimora
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(BRIMORA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/brimora_python)
install(EXPORT brimora_python_targets NAMESPACE brimora:: DESTINATION ${BRIMORA_PACKAGE_DIR})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/brimora_pythonConfig.cmake.in
  ${CMAKE_BINARY_DIR}/brimora_pythonConfig.cmake INSTALL_DESTINATION ${BRIMORA_PACKAGE_DIR}
  PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/brimora_pythonConfigVersion.cmake
  VERSION 0.1.0 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/brimora_pythonConfig.cmake ${CMAKE_BINARY_DIR}/brimora_pythonConfigVersion.cmake
  DESTINATION ${BRIMORA_PACKAGE_DIR})
