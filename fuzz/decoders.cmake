# The decoders that the fuzz targets and the ordinary tests (tests/decoders) share: one library each,
# kavrel_<name>_decoder, with the decoding code itself compiled in. They try this project's own
# services, whatever the programs are linked with.
set(KAVREL_FUZZ_DIR ${CMAKE_CURRENT_LIST_DIR})
set(platform_dir ${PROJECT_SOURCE_DIR}/platform)

# kavrel_decoder(<name> [SOURCES <file>...] [LIBRARIES <target>...] [INCLUDES <directory>...])
function(kavrel_decoder name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;INCLUDES" ${ARGN})
  add_library(kavrel_${name}_decoder STATIC EXCLUDE_FROM_ALL
    ${KAVREL_FUZZ_DIR}/${name}_decoder.cpp ${ARG_SOURCES})
  target_include_directories(kavrel_${name}_decoder PUBLIC ${KAVREL_FUZZ_DIR} ${ARG_INCLUDES})
  target_link_libraries(kavrel_${name}_decoder
    PUBLIC ${ARG_LIBRARIES} kavrel_fuzz_support PRIVATE kavrel_build_options)
endfunction()

add_library(kavrel_fuzz_support STATIC EXCLUDE_FROM_ALL ${KAVREL_FUZZ_DIR}/log_count.cpp)
target_include_directories(kavrel_fuzz_support PUBLIC
  ${KAVREL_FUZZ_DIR} ${platform_dir}/dlog/include ${platform_dir}/common)
target_link_libraries(kavrel_fuzz_support PRIVATE kavrel_build_options)

# rpc-port: its frames and parcels, and in place of its sockets ports that hold bytes.
set(rpc_dir ${platform_dir}/rpc-port)
add_library(kavrel_byte_port STATIC EXCLUDE_FROM_ALL
  ${KAVREL_FUZZ_DIR}/byte_port.cpp ${KAVREL_FUZZ_DIR}/wire_model.cpp
  ${rpc_dir}/src/api_parcel.cpp ${rpc_dir}/src/frame.cpp ${rpc_dir}/src/parcel.cpp
  ${rpc_dir}/src/port.cpp ${rpc_dir}/src/process.cpp)
target_include_directories(kavrel_byte_port PUBLIC ${rpc_dir}/include ${rpc_dir}/src)
target_link_libraries(kavrel_byte_port PUBLIC kavrel_fuzz_support PRIVATE kavrel_build_options)
target_link_options(kavrel_byte_port INTERFACE
  -Wl,--wrap=rpc_port_parcel_create -Wl,--wrap=rpc_port_parcel_create_from_port
  -Wl,--wrap=rpc_port_parcel_destroy)

kavrel_decoder(parcel
  SOURCES ${rpc_dir}/src/address.cpp ${rpc_dir}/src/credentials.cpp ${rpc_dir}/src/greeting.cpp
          ${rpc_dir}/src/intake.cpp
  LIBRARIES kavrel_byte_port kavrel_platform_common)

# The two ends of the remote interface, and what its method table says.
add_library(kavrel_request_model STATIC EXCLUDE_FROM_ALL
  ${KAVREL_FUZZ_DIR}/request_model.cpp)
target_link_libraries(kavrel_request_model
  PUBLIC kavrel_api_parts kavrel_byte_port PRIVATE kavrel_build_options)
kavrel_decoder(request LIBRARIES kavrel_request_model)
kavrel_decoder(reply LIBRARIES kavrel_request_model)

kavrel_decoder(control
  SOURCES ${PROJECT_SOURCE_DIR}/apps/common/control_protocol.cpp
          ${PROJECT_SOURCE_DIR}/apps/common/printable.cpp
  LIBRARIES kavrel_byte_port
  INCLUDES ${PROJECT_SOURCE_DIR}/apps/common)

# vconf: keys, records, and the values' file.
set(vconf_dir ${platform_dir}/vconf)
find_library(LMDB_LIBRARY lmdb REQUIRED)
kavrel_decoder(record
  SOURCES ${vconf_dir}/src/key.cpp ${vconf_dir}/src/record.cpp
  INCLUDES ${vconf_dir}/include ${vconf_dir}/src)
kavrel_decoder(store
  SOURCES ${vconf_dir}/src/damage.cpp ${vconf_dir}/src/file_check.cpp
          ${vconf_dir}/src/lmdb_handles.cpp
          ${PROJECT_SOURCE_DIR}/tests/support/temporary_directory.cpp
  LIBRARIES kavrel_record_decoder ${LMDB_LIBRARY}
  INCLUDES ${PROJECT_SOURCE_DIR}/tests/support)

# lwipc: names of events and their files.
kavrel_decoder(event
  SOURCES ${platform_dir}/lwipc/src/event_file.cpp ${platform_dir}/lwipc/src/event_place.cpp
          ${PROJECT_SOURCE_DIR}/tests/support/temporary_directory.cpp
  LIBRARIES kavrel_platform_common
  INCLUDES ${platform_dir}/lwipc/src ${PROJECT_SOURCE_DIR}/tests/support)
