# The installed library: headers, the station's definitions, zebgen, and the two ways to find them
# (find_package and pkg-config). Servers and tools install themselves. A component is a Debian package
# (packaging/debian), but for the library's, whose package has the version of the SONAME in its name.
include(CMakePackageConfigHelpers)

set(ZEB2_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/zeb2)
set(ZEB2_INSTALL_DEFINITIONS ${ZEB2_INSTALL_HEADERS}/definitions)
set(ZEB2_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/zeb2)
set(generated ${PROJECT_BINARY_DIR}/package)

foreach(dir INCLUDEDIR LIBDIR)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_${dir}})
    set(ZEB2_PC_${dir} ${CMAKE_INSTALL_${dir}})
  else()
    set(ZEB2_PC_${dir} \\\${prefix}/${CMAKE_INSTALL_${dir}})
  endif()
endforeach()
set(ZEB2_PC_DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig/zeb2.pc)
if(NOT IS_ABSOLUTE ${ZEB2_PC_DESTINATION})
  set(ZEB2_PC_DESTINATION \${CMAKE_INSTALL_PREFIX}/${ZEB2_PC_DESTINATION})
endif()
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zeb2Config.cmake.in
  ${generated}/zeb2Config.cmake INSTALL_DESTINATION ${ZEB2_INSTALL_CMAKE}
  PATH_VARS ZEB2_INSTALL_DEFINITIONS)
if(ZEB_32BIT)
  set(CMAKE_SIZEOF_VOID_P 4) # found out without our flags
endif()
write_basic_package_version_file(${generated}/zeb2ConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)

install(TARGETS zeb2 zebgen EXPORT zeb2Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libzeb2
    NAMELINK_COMPONENT libzeb2-dev
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT libzeb2-dev)
install(EXPORT zeb2Targets NAMESPACE zeb2:: DESTINATION ${ZEB2_INSTALL_CMAKE}
  COMPONENT libzeb2-dev)
list(TRANSFORM zeb_headers PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE header_paths)
install(FILES ${header_paths} ${zeb_generated_headers} DESTINATION ${ZEB2_INSTALL_HEADERS}
  COMPONENT libzeb2-dev)
install(FILES ${definition_paths} DESTINATION ${ZEB2_INSTALL_DEFINITIONS} COMPONENT libzeb2-dev)
install(FILES ${generated}/zeb2Config.cmake ${generated}/zeb2ConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/zeb_add_catalogue.cmake
  DESTINATION ${ZEB2_INSTALL_CMAKE} COMPONENT libzeb2-dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/first_daemon
  ${PROJECT_SOURCE_DIR}/examples/first_driver ${PROJECT_SOURCE_DIR}/examples/own_record
  ${PROJECT_SOURCE_DIR}/examples/shared_variable ${PROJECT_SOURCE_DIR}/examples/tabular_file
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT libzeb2-dev)
# zeb2.pc names the prefix of the installation, which `cmake --install --prefix` may still change.
install(CODE "
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  set(PROJECT_DESCRIPTION \"${PROJECT_DESCRIPTION}\")
  set(ZEB2_PC_INCLUDEDIR \"${ZEB2_PC_INCLUDEDIR}\")
  set(ZEB2_PC_LIBDIR \"${ZEB2_PC_LIBDIR}\")
  set(pc \"${ZEB2_PC_DESTINATION}\")
  message(STATUS \"Installing: \$ENV{DESTDIR}\${pc}\")
  configure_file(\"${PROJECT_SOURCE_DIR}/cmake/zeb2.pc.in\" \"\$ENV{DESTDIR}\${pc}\" @ONLY)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${pc}\")
" COMPONENT libzeb2-dev)
zeb_man(5 zeb-common ${PROJECT_SOURCE_DIR}/docs/zeb.conf.5)
