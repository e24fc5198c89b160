# `cmake --install` gives a CMake package and a pkg-config file. Both bring all that a host links.

include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Tessera)
# Everything below this folder is ours, so that names such as "Platform" meet nobody else's.
set(header_folder ${CMAKE_INSTALL_INCLUDEDIR}/tessera)

set_target_properties(tessera-platform PROPERTIES EXPORT_NAME platform)
set_target_properties(tessera-nettasks PROPERTIES EXPORT_NAME nettasks)
set_target_properties(tessera-codingextras PROPERTIES EXPORT_NAME codingextras)
set_target_properties(tessera-valet PROPERTIES EXPORT_NAME valet)
set_target_properties(tessera tessera-valet tessera-nettasks tessera-codingextras tessera-platform PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

install(TARGETS tessera tessera-valet tessera-nettasks tessera-codingextras tessera-platform EXPORT TesseraTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${header_folder}
  INCLUDES DESTINATION ${header_folder})
install(EXPORT TesseraTargets NAMESPACE Tessera:: DESTINATION ${package_folder})

# Found from where the file lies, so that `cmake --install --prefix` needs no second configuration.
file(RELATIVE_PATH TESSERA_PC_TO_PREFIX /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)

# The adapters that were built, each a component of the package and a pkg-config file of its own.
set(qt_requires "Qt6Core >= 6.2")
set(glib_requires "glib-2.0 >= 2.58")
foreach(adapter IN ITEMS qt glib)
  if(TARGET tessera-${adapter})
    set_target_properties(tessera-${adapter} PROPERTIES EXPORT_NAME ${adapter}
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    install(TARGETS tessera-${adapter} EXPORT Tessera-${adapter}
      ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      FILE_SET HEADERS DESTINATION ${header_folder}
      INCLUDES DESTINATION ${header_folder})
    install(EXPORT Tessera-${adapter} NAMESPACE Tessera:: DESTINATION ${package_folder})
    set(adapter_requires ${${adapter}_requires})
    configure_file(cmake/tessera-adapter.pc.in ${PROJECT_BINARY_DIR}/tessera-${adapter}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/tessera-${adapter}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  endif()
endforeach()

configure_package_config_file(cmake/TesseraConfig.cmake.in ${PROJECT_BINARY_DIR}/TesseraConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TesseraConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TesseraConfig.cmake ${PROJECT_BINARY_DIR}/TesseraConfigVersion.cmake
  DESTINATION ${package_folder})

configure_file(cmake/tessera.pc.in ${PROJECT_BINARY_DIR}/tessera.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tessera.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
