# EFL as targets Efl::<package>, from pkg-config's plain variables: Debian's files name an include
# directory that does not exist, which an imported target of pkg_check_modules turns into an error.

# kavrel_efl_target(<package>): Efl::<package>, for example Efl::elementary.
function(kavrel_efl_target package)
  if(TARGET Efl::${package})
    return()
  endif()
  pkg_check_modules(EFL_${package} REQUIRED ${package})
  set(directories "")
  foreach(directory IN LISTS EFL_${package}_INCLUDE_DIRS)
    if(IS_DIRECTORY ${directory})
      list(APPEND directories ${directory})
    endif()
  endforeach()
  add_library(Efl::${package} INTERFACE IMPORTED GLOBAL)
  target_include_directories(Efl::${package} SYSTEM INTERFACE ${directories})
  target_link_directories(Efl::${package} INTERFACE ${EFL_${package}_LIBRARY_DIRS})
  target_link_libraries(Efl::${package} INTERFACE ${EFL_${package}_LIBRARIES})
endfunction()
