// The C functions of parcels and ports.
#include <rpc-port.h>

#include "guard.h"
#include "parcel.h"
#include "port.h"

using kavrel_rpc::CheckHandle;
using kavrel_rpc::Guard;
using kavrel_rpc::Parcel;
using kavrel_rpc::Port;

namespace {

Parcel* AsParcel(void* handle) {
  return static_cast<Parcel*>(handle);
}
Port* AsPort(rpc_port_h handle) {
  return static_cast<Port*>(handle);
}

}  // namespace

int rpc_port_disconnect(rpc_port_h port) {
  if (const int result = CheckHandle(AsPort(port), __func__); result != 0) return result;
  return Guard(__func__, [&] { return AsPort(port)->Disconnect(); });
}

int rpc_port_parcel_create(rpc_port_parcel_h* parcel) {
  if (parcel == nullptr) return -EINVAL;
  Parcel* created = Parcel::Create();
  if (created == nullptr) return -ENOMEM;
  *parcel = created;
  return 0;
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h* parcel, rpc_port_h port) {
  if (parcel == nullptr) return -EINVAL;
  if (const int result = CheckHandle(AsPort(port), __func__); result != 0) return result;
  Parcel* received = nullptr;
  const int result = Guard(__func__, [&] { return AsPort(port)->Receive(&received); });
  if (result == 0) *parcel = received;
  return result;
}

int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port) {
  if (parcel == nullptr) return -EINVAL;
  if (const int result = CheckHandle(AsPort(port), __func__); result != 0) return result;
  return Guard(__func__, [&] { return AsPort(port)->Send(*AsParcel(parcel)); });
}

int rpc_port_parcel_destroy(rpc_port_parcel_h parcel) {
  if (parcel == nullptr) return -EINVAL;
  delete AsParcel(parcel);
  return 0;
}

// A header's handle is its parcel's.
int rpc_port_parcel_get_header(rpc_port_parcel_h parcel, rpc_port_parcel_header_h* header) {
  if (parcel == nullptr || header == nullptr) return -EINVAL;
  *header = parcel;
  return 0;
}

int rpc_port_parcel_header_set_tag(rpc_port_parcel_header_h header, const char* tag) {
  return header != nullptr ? AsParcel(header)->SetTag(tag) : -EINVAL;
}

int rpc_port_parcel_header_get_tag(rpc_port_parcel_header_h header, char** tag) {
  return header != nullptr && tag != nullptr ? AsParcel(header)->CopyTag(tag) : -EINVAL;
}

int rpc_port_parcel_header_set_seq_num(rpc_port_parcel_header_h header, int seq_num) {
  if (header == nullptr) return -EINVAL;
  AsParcel(header)->SetSequence(seq_num);
  return 0;
}

int rpc_port_parcel_header_get_seq_num(rpc_port_parcel_header_h header, int* seq_num) {
  if (header == nullptr || seq_num == nullptr) return -EINVAL;
  *seq_num = AsParcel(header)->Sequence();
  return 0;
}

int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int32_t value) {
  return parcel != nullptr ? AsParcel(parcel)->WriteNumber(kavrel_rpc::frame::kInt32, value)
                           : -EINVAL;
}

int rpc_port_parcel_write_bool(rpc_port_parcel_h parcel, bool value) {
  return parcel != nullptr ? AsParcel(parcel)->WriteBool(value) : -EINVAL;
}

int rpc_port_parcel_write_string(rpc_port_parcel_h parcel, const char* value) {
  return parcel != nullptr && value != nullptr ? AsParcel(parcel)->WriteString(value) : -EINVAL;
}

int rpc_port_parcel_write_array_count(rpc_port_parcel_h parcel, int count) {
  return parcel != nullptr ? AsParcel(parcel)->WriteNumber(kavrel_rpc::frame::kArrayCount, count)
                           : -EINVAL;
}

int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int32_t* value) {
  if (parcel == nullptr || value == nullptr) return -EINVAL;
  return AsParcel(parcel)->ReadNumber(kavrel_rpc::frame::kInt32, value);
}

int rpc_port_parcel_read_bool(rpc_port_parcel_h parcel, bool* value) {
  if (parcel == nullptr || value == nullptr) return -EINVAL;
  return AsParcel(parcel)->ReadBool(value);
}

int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char** value) {
  if (parcel == nullptr || value == nullptr) return -EINVAL;
  return AsParcel(parcel)->ReadString(value);
}

int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int* count) {
  if (parcel == nullptr || count == nullptr) return -EINVAL;
  return AsParcel(parcel)->ReadNumber(kavrel_rpc::frame::kArrayCount, count);
}
