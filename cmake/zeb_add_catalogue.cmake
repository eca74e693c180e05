# zeb_add_catalogue(TARGET [STATION] [DEFINITIONS header ...])
#
# Adds an object library with the public catalogue tables of the given definition headers, for an
# application whose records or messages the station's catalogue lacks. STATION adds the definitions
# that the library was built with: without it the application knows its own alone. A program that
# links TARGET (directly: object files do not travel further) has the plain NETPACK_ functions use
# these tables, and its sources see the catalogue's own NETMSG_type and records through the
# library's headers:
#
#   find_package(zeb2 REQUIRED)
#   zeb_add_catalogue(my_catalogue STATION DEFINITIONS my_records.h)
#   target_link_libraries(my_daemon PRIVATE my_catalogue)
#
# Sources may also include <TARGET/records.h> and <TARGET/msg_list.h> by name. Changed definitions
# are generated again by the next build.
function(zeb_add_catalogue target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "STATION" "" "DEFINITIONS")
  if(arg_UNPARSED_ARGUMENTS OR NOT (arg_STATION OR arg_DEFINITIONS))
    message(FATAL_ERROR "zeb_add_catalogue(TARGET [STATION] [DEFINITIONS header ...])")
  endif()
  set(parent ${CMAKE_CURRENT_BINARY_DIR}/zeb_catalogues)
  set(dir ${parent}/${target})
  set(options --name ${target} --out ${dir}
    -I ${CMAKE_CURRENT_SOURCE_DIR} -I ${CMAKE_CURRENT_BINARY_DIR})
  set(definitions "")
  foreach(header IN LISTS arg_DEFINITIONS)
    get_filename_component(path ${header} ABSOLUTE)
    list(APPEND definitions ${path})
  endforeach()
  set(inputs ${definitions})
  if(arg_STATION)
    get_property(station GLOBAL PROPERTY ZEB2_DEFINITIONS_DIR)
    file(GLOB station_headers CONFIGURE_DEPENDS ${station}/*.h)
    list(APPEND inputs ${station_headers})
    list(APPEND options --station ${station})
  endif()

  set(sources ${dir}/ds_desc.c ${dir}/msg_list.c)
  add_custom_command(OUTPUT ${dir}/stamp
    BYPRODUCTS ${sources} ${dir}/msg_list.h ${dir}/records.h
    COMMAND zeb2::zebgen ${options} ${definitions}
    COMMAND ${CMAKE_COMMAND} -E touch ${dir}/stamp
    DEPENDS zeb2::zebgen ${inputs} VERBATIM
    COMMENT "Generating the catalogue ${target}")
  add_library(${target} OBJECT ${sources} ${dir}/stamp)
  if(NOT CMAKE_C_COMPILER_LOADED)
    set_source_files_properties(${sources} PROPERTIES LANGUAGE CXX)
  endif()
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(${target} PUBLIC ${parent} ${CMAKE_CURRENT_SOURCE_DIR}
    ${CMAKE_CURRENT_BINARY_DIR})
  target_compile_definitions(${target} PUBLIC
    ZEB_MSG_LIST_HEADER="${target}/msg_list.h" ZEB_RECORDS_HEADER="${target}/records.h")
  target_link_libraries(${target} PUBLIC zeb2::zeb2)
endfunction()
