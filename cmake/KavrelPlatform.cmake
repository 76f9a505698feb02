# The five platform services as targets Platform::<service>, wherever they come from.
# A service's room calls kavrel_platform_library(); with KAVREL_PLATFORM=system pkg-config is asked.

# kavrel_platform_library(<service> SOURCES <file>... [LIBRARIES <target>...]): the bundled service
# as lib<service>.so.0 with its public header from include/.
function(kavrel_platform_library service)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(${service} SHARED ${ARG_SOURCES})
  add_library(Platform::${service} ALIAS ${service})
  target_include_directories(${service}
    PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src)
  target_link_libraries(${service} PRIVATE $<BUILD_INTERFACE:kavrel_build_options>
    $<BUILD_INTERFACE:kavrel_platform_common> ${ARG_LIBRARIES})
  target_link_options(${service} PRIVATE -Wl,--no-undefined -Wl,--exclude-libs,ALL)
  if(KAVREL_SANITIZE)
    set_target_properties(${service} PROPERTIES LINK_OPTIONS "")
  endif()
  set_target_properties(${service} PROPERTIES SOVERSION 0 VERSION ${PROJECT_VERSION})
  # In the library's export set: who links the library finds the services that it needs.
  install(TARGETS ${service} EXPORT KavrelApiTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          COMPONENT platform NAMELINK_COMPONENT platform-development)
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT platform-development)
  kavrel_pkgconfig(${service} ${KAVREL_ROOT}/packaging/platform.pc.in platform-development)
endfunction()

# kavrel_system_platform(<service>...): Platform::<service> from the system's own libraries.
function(kavrel_system_platform)
  foreach(service IN LISTS ARGN)
    pkg_check_modules(PLATFORM_${service} REQUIRED IMPORTED_TARGET GLOBAL ${service})
    add_library(Platform::${service} ALIAS PkgConfig::PLATFORM_${service})
  endforeach()
endfunction()

# kavrel_platform_soname(<service> <variable>): the name under which programs load the service.
function(kavrel_platform_soname service variable)
  set(soname lib${service}.so.0)
  if(KAVREL_PLATFORM STREQUAL "system")
    find_library(PLATFORM_${service}_FILE ${service} HINTS ${PLATFORM_${service}_LIBRARY_DIRS} REQUIRED)
    execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${PLATFORM_${service}_FILE}
                    OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
    if(headers MATCHES "SONAME +([^ \n]+)")
      set(soname ${CMAKE_MATCH_1})
    endif()
  endif()
  set(${variable} ${soname} PARENT_SCOPE)
endfunction()

# kavrel_use_platform_headers(<target> <service>...): compile against the services' headers without
# linking them, so that a test can put its own fakes in their place.
function(kavrel_use_platform_headers target)
  foreach(service IN LISTS ARGN)
    if(KAVREL_PLATFORM STREQUAL "system")
      target_include_directories(${target} PUBLIC ${PLATFORM_${service}_INCLUDE_DIRS})
    else()
      target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/platform/${service}/include)
    endif()
  endforeach()
endfunction()
