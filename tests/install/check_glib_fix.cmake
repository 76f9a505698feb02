# Which GLibs are taken for fixed:  cmake -P check_glib_fix.cmake
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/KavrelGlib.cmake)

function(expect wanted)
  kavrel_glib_is_fixed(fixed ${ARGN})
  if(NOT fixed STREQUAL wanted)
    message(SEND_ERROR "GLib ${ARGN}: fixed is ${fixed}, expected ${wanted}")
  endif()
endfunction()

expect(TRUE 2.74.6 2.74.6-2+deb12u2)
expect(TRUE 2.74.6 2.74.6-2+deb12u10)
expect(FALSE 2.74.6 2.74.6-2+deb12u1)
expect(FALSE 2.74.6 2.74.6-2)
expect(FALSE 2.74.6)
expect(FALSE 2.74.5 2.80.0-1)
expect(FALSE 2.78.4)
expect(TRUE 2.78.5)
expect(FALSE 2.79.1)
expect(FALSE 2.80.0)
expect(TRUE 2.80.1)
expect(TRUE 2.84.0)

# A whole configuration is refused, and let through on request.
foreach(allowed OFF ON)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -DKAVREL_ALLOW_UNFIXED_GLIB=${allowed} -P
      ${CMAKE_CURRENT_LIST_DIR}/require_old_glib.cmake
    RESULT_VARIABLE result ERROR_VARIABLE errors)
  if((allowed AND NOT result EQUAL 0) OR (NOT allowed AND result EQUAL 0))
    message(SEND_ERROR "allowed ${allowed}: result ${result}: ${errors}")
  endif()
  if(NOT errors MATCHES "CVE-2024-34397")
    message(SEND_ERROR "allowed ${allowed}: no reason is given: ${errors}")
  endif()
endforeach()
