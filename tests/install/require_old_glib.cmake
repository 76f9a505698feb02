# What a configuration does with a GLib that is too old.
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/KavrelGlib.cmake)
kavrel_require_fixed_glib(2.70.0)
