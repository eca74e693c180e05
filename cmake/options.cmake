# One interface target carries every compile and link flag of our own code, so that
# third-party sources (the test framework) are built with the ABI flags only.

set(ZEB_ABI_FLAGS "")
if(ZEB_32BIT)
  string(APPEND ZEB_ABI_FLAGS " -m32")
  add_compile_options(-m32 -msse2 -mfpmath=sse)
  add_link_options(-m32)
  # Files above 2 GiB and with 64-bit inode numbers.
  add_compile_definitions(_FILE_OFFSET_BITS=64)
endif()
if(ZEB_SANITIZE)
  string(APPEND ZEB_ABI_FLAGS " -fsanitize=${ZEB_SANITIZE}")
  add_compile_options(-fsanitize=${ZEB_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZEB_SANITIZE})
  if(ZEB_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

add_library(zeb_options INTERFACE)
target_compile_options(zeb_options INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wno-unused-parameter
  $<$<BOOL:${ZEB_WERROR}>:-Werror>)

# zeb_program(DIRECTORY COMPONENT target ...): what a station runs, built together by the target
# `station`, found in one directory of the build tree, installed into DIRECTORY as part of COMPONENT,
# which is the name of a Debian package. Installed programs find the library beside them, so that an
# installation works under any prefix.
add_custom_target(station)
function(zeb_program directory component)
  set_target_properties(${ARGN} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin
    INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
  add_dependencies(station ${ARGN})
  install(TARGETS ${ARGN} RUNTIME DESTINATION ${directory} COMPONENT ${component})
endfunction()

# zeb_man(SECTION COMPONENT page ...): the manual pages of a component.
function(zeb_man section component)
  install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()
# zeb_unit(COMPONENT file): a systemd unit of packaging/.
function(zeb_unit component file)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/${file} DESTINATION lib/systemd/system
    COMPONENT ${component})
endfunction()
