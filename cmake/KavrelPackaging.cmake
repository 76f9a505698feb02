# What is installed works wherever it is moved to: nothing in it names the prefix of the configuration.

# kavrel_pkgconfig(<name> <template> <component>): <name>.pc, whose paths start from its own place. A
# library directory that the user gave as an absolute path is not below the prefix: that one is named.
function(kavrel_pkgconfig name template component)
  set(directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  if(IS_ABSOLUTE ${directory})
    set(pc_prefix ${CMAKE_INSTALL_PREFIX})
  else()
    file(RELATIVE_PATH up /prefix/${directory} /prefix)
    string(REGEX REPLACE "/$" "" up ${up})
    set(pc_prefix "\${pcfiledir}/${up}")
  endif()
  foreach(place LIBDIR INCLUDEDIR)
    set(pc_${place} ${CMAKE_INSTALL_${place}})
    if(NOT IS_ABSOLUTE ${pc_${place}})
      set(pc_${place} "\${prefix}/${pc_${place}}")
    endif()
  endforeach()
  configure_file(${template} ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${directory}
          COMPONENT ${component})
  if(IS_ABSOLUTE ${directory})
    return()
  endif()
  # pkg-config leaves out /usr/include, which compilers want to look through last, when it is spelt so.
  install(CODE "
    if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
      set(file \"\$ENV{DESTDIR}/usr/${directory}/${name}.pc\")
      file(READ \${file} text)
      string(REGEX REPLACE \"^prefix=[^\n]*\" \"prefix=/usr\" text \"\${text}\")
      file(WRITE \${file} \"\${text}\")
    endif()" COMPONENT ${component})
endfunction()

# kavrel_cmake_package(<name> <component>): find_package(<name>), from packaging/<name>Config.cmake.in and
# the targets that were installed with EXPORT <name>Targets.
include(CMakePackageConfigHelpers)
function(kavrel_cmake_package name component)
  set(directory ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  set(config ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake)
  set(version ${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake)
  configure_package_config_file(${KAVREL_ROOT}/packaging/${name}Config.cmake.in ${config}
    INSTALL_DESTINATION ${directory})
  write_basic_package_version_file(${version} COMPATIBILITY SameMajorVersion)
  install(FILES ${config} ${version} DESTINATION ${directory} COMPONENT ${component})
  install(EXPORT ${name}Targets NAMESPACE Kavrel:: DESTINATION ${directory} COMPONENT ${component})
endfunction()
