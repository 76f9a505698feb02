# Kavrel::Efl: Elementary with the parts of EFL below it. Debian's pkg-config files name include
# directories that do not exist, which CMake's own imported targets refuse; those are left out.

pkg_check_modules(EFL REQUIRED elementary ecore-evas)

set(efl_includes)
foreach(directory IN LISTS EFL_INCLUDE_DIRS)
  if(IS_DIRECTORY "${directory}")
    list(APPEND efl_includes "${directory}")
  endif()
endforeach()

add_library(kavrel_efl INTERFACE)
add_library(Kavrel::Efl ALIAS kavrel_efl)
# As system headers: they do not pass this project's warnings.
target_include_directories(kavrel_efl SYSTEM INTERFACE ${efl_includes})
target_link_libraries(kavrel_efl INTERFACE elementary ecore_evas ecore_input ecore evas eo eina)
target_link_options(kavrel_efl INTERFACE -Wl,--as-needed)
