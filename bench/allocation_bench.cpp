// What calls allocate, counted by replacing the allocator: C, C++ and all libraries.
#include <kavrel/state_api.h>
#include <sys/eventfd.h>

#include <functional>
#include <string>

#include "allocations.h"
#include "measure.h"
#include "peers/peer.h"
#include "table.h"
#include "temporary_directory.h"

using kavrel_bench::Allocations;
using kavrel_bench::Kind;
using kavrel_bench::Row;

namespace {

constexpr int kCalls = 1000;

/// One value: how many allocations a call makes once what is made once has been made.
Row Counted(const char* name, const std::function<void(int)>& call) {
  constexpr int kFirst = 10;
  for (int i = 0; i < kFirst; ++i) call(i);
  const long before = Allocations();
  for (int i = 0; i < kCalls; ++i) call(i);
  const double each = static_cast<double>(Allocations() - before) / kCalls;
  std::printf("%-48s %10.3f\n", name, each);
  Row row{name, {}};
  row.p50.push_back(each);
  return row;
}

}  // namespace

int main() {
  setenv("KAVREL_LOG", "none", 1);
  const kavrel_test::TemporaryDirectory directory;
  setenv("KAVREL_RUNTIME_DIR", directory.Path("run").c_str(), 1);
  setenv("KAVREL_STATE_DIR", directory.Path("state").c_str(), 1);
  const kavrel_bench::Peer kavrel = kavrel_bench::KavrelPeer();
  const std::string address = directory.Path("service");
  const int ready = eventfd(0, 0);
  const kavrel_bench::Child service(
      [&] { kavrel.serve(address, [ready] { eventfd_write(ready, 1); }); });
  eventfd_t count = 0;
  if (eventfd_read(ready, &count) != 0) return 1;
  const auto caller = kavrel.connect(address);
  int value = 0;
  std::printf("\nAllocations of a call\n");
  kavrel_bench::RecordRows(
      "Allocations of a call", "each",
      {Counted("kavrel_set_pip_focus", [](int i) { kavrel_set_pip_focus(i); }),
       Counted("kavrel_get_pip_focus, unchanged", [&](int) { kavrel_get_pip_focus(&value); }),
       Counted("kavrel_api_get_window_size, client", [&](int) { caller->TwoWay(); }),
       Counted("kavrel_api_show_rating_banner, client", [&](int i) { caller->OneWay(i); })});
  return 0;
}
