# What tests of the channel between host and plug-in share: a bus, and processes on it. The second
# implementation of the protocol needs the system's own Python, which has GIO's bindings.
find_package(nlohmann_json REQUIRED)
find_program(KAVREL_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)

add_executable(channel_end
  ${CMAKE_CURRENT_LIST_DIR}/channel_end.cpp ${CMAKE_CURRENT_LIST_DIR}/shared_connection.cpp)
set_target_properties(channel_end PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
target_link_libraries(channel_end PRIVATE kavrel_build_options nlohmann_json::nlohmann_json kavrel_api_parts Platform::dlog
                                          PkgConfig::GIO)

add_library(kavrel_channel_support STATIC
  ${CMAKE_CURRENT_LIST_DIR}/bus_peer.cpp ${CMAKE_CURRENT_LIST_DIR}/bus_daemon.cpp
  ${CMAKE_CURRENT_LIST_DIR}/shared_connection.cpp)
target_link_libraries(kavrel_channel_support PUBLIC kavrel_test_support nlohmann_json::nlohmann_json
                                                    PkgConfig::GIO
                                             PRIVATE kavrel_build_options)
target_compile_definitions(kavrel_channel_support PRIVATE
  KAVREL_CHANNEL_END="$<TARGET_FILE:channel_end>" KAVREL_PYTHON="${KAVREL_PYTHON}"
  KAVREL_PEER="${CMAKE_CURRENT_LIST_DIR}/peer.py")
add_dependencies(kavrel_channel_support channel_end)
