// From a request parcel to the call of a service's operation and back to the result parcel.
//
// Nothing reaches an operation unless the whole request could be decoded: every argument there, of
// its type, and nothing after the last one.
#pragma once

#include <rpc-port.h>

#include <cstddef>

#include "../../common/log.h"
#include "KavrelAppApiStub.h"
#include "Parcel.h"

namespace rpc_port {
namespace KavrelAppApiStub {
namespace stub {

/// One request and, for methods that answer, its result. Lives on the stub's thread for the time of
/// one received event.
class Exchange {
 public:
  using Service = KavrelAppApi::ServiceBase;

  /// `where` is the event handler's place, to which all log lines belong.
  Exchange(Service& service, rpc_port_h port, kavrel::app_api::Parcel request,
           kavrel::SourceLine where)
      : service_(service), port_(port), where_(where), request_(std::move(request)) {}

  /// Decodes the request, calls the operation, sends the result. Returns the handler's result: 0,
  /// the send's result, or -1 for a request that could not be served.
  int Run();

  /// One operation by its row of the method table.
  template <class Method, class Operation>
  static int Serve(Exchange& exchange);

 private:
  template <class Method, class Operation, class... P>
  int ServeAs(typename Method::Result (* /*signature*/)(P...));
  template <class T>
  bool ReadArgument(const char* method, std::size_t number, std::remove_reference_t<T>& argument);
  bool ReadEnd(const char* method);
  template <class R>
  int SendResult(const int* out_values, std::size_t count, const R& result);
  bool PrepareResult();
  int ServeMethod(int method_id);

  Service& service_;
  rpc_port_h port_;
  kavrel::SourceLine where_;
  // Result first: the request is destroyed before it.
  kavrel::app_api::Parcel result_;
  kavrel::app_api::Parcel request_;
};

}  // namespace stub
}  // namespace KavrelAppApiStub
}  // namespace rpc_port
