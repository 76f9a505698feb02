# A GLib that takes anybody's word for the bus's (CVE-2024-34397) lets every local user forge the news
# that a plug-in has gone. It is fixed in 2.80.1 and 2.78.5, and in Debian's packages of older versions.

option(KAVREL_ALLOW_UNFIXED_GLIB
  "Build with a GLib that lets other users forge what the bus says (CVE-2024-34397)" OFF)

# kavrel_glib_is_fixed(<result> <version> [<Debian's version of the package>])
function(kavrel_glib_is_fixed result version)
  set(${result} FALSE PARENT_SCOPE)
  if(version VERSION_GREATER_EQUAL 2.80.1 OR
      (version VERSION_GREATER_EQUAL 2.78.5 AND version VERSION_LESS 2.79))
    set(${result} TRUE PARENT_SCOPE)
  elseif(ARGC GREATER 2 AND version VERSION_EQUAL 2.74.6)
    execute_process(COMMAND dpkg --compare-versions "${ARGV2}" ge 2.74.6-2+deb12u2
      RESULT_VARIABLE older ERROR_QUIET)
    if(older EQUAL 0)
      set(${result} TRUE PARENT_SCOPE)
    endif()
  endif()
endfunction()

function(kavrel_require_fixed_glib version)
  execute_process(COMMAND dpkg-query --showformat=\${Version}\n --show libglib2.0-0
    OUTPUT_VARIABLE packages RESULT_VARIABLE missing ERROR_QUIET)
  string(REGEX MATCH "^[^\n]+" package "${packages}")  # the same for each architecture
  kavrel_glib_is_fixed(fixed "${version}" ${package})
  if(fixed)
    return()
  endif()
  set(problem "GLib ${version} ${package} lets other users forge what the bus says (CVE-2024-34397): "
    "use 2.80.1, 2.78.5, Debian's 2.74.6-2+deb12u2 or a later one, or set "
    "KAVREL_ALLOW_UNFIXED_GLIB=ON where yours is fixed under another number")
  string(CONCAT problem ${problem})
  if(KAVREL_ALLOW_UNFIXED_GLIB)
    message(WARNING "${problem}")
  else()
    message(FATAL_ERROR "${problem}")
  endif()
endfunction()
