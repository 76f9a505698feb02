// Cap'n Proto RPC over a local socket.
#include <kj/vector.h>

#include <capnp/ez-rpc.h>

#include "peers/peer.h"
#include "viewer.capnp.h"

namespace kavrel_bench {
namespace {

class Service final : public ::Viewer::Server {
 public:
  kj::Promise<void> getWindowSize(GetWindowSizeContext context) override {
    auto results = context.getResults();
    results.setSize(kWindowSize);
    results.setResult(true);
    return kj::READY_NOW;
  }
  kj::Promise<void> show(ShowContext /*context*/) override { return kj::READY_NOW; }
};

void Serve(const std::string& address, const std::function<void()>& ready) {
  capnp::EzRpcServer server(kj::heap<Service>(), "unix:" + address);
  server.getPort().wait(server.getWaitScope());  // it listens now
  ready();
  kj::NEVER_DONE.wait(server.getWaitScope());
}

class CapnpCaller final : public Caller {
 public:
  explicit CapnpCaller(const std::string& address)
      : connection_(std::make_unique<Connection>(address)) {
    TwoWay();
  }

  void TwoWay() override { Remote().getWindowSizeRequest().send().wait(WaitScope()); }
  void OneWay(int number) override {
    auto request = Remote().showRequest();
    request.setNumber(number);
    request.setFirst(kText);
    request.setSecond(kText);
    Sent().add(request.send().ignoreResult());
    if (Sent().size() == kTogether) Settle();
  }
  void Settle() override {
    kj::joinPromises(Sent().releaseAsArray()).wait(WaitScope());
    Sent() = {};
  }

 private:
  // Nothing is written before the event loop runs.
  static constexpr std::size_t kTogether = 100;

  // On its own, because what they do when they end may throw.
  struct Connection {
    explicit Connection(const std::string& address)
        : client("unix:" + address), viewer(client.getMain<::Viewer>()) {}
    capnp::EzRpcClient client;
    ::Viewer::Client viewer;
    kj::Vector<kj::Promise<void>> sent;
  };

  ::Viewer::Client& Remote() { return connection_->viewer; }
  kj::Vector<kj::Promise<void>>& Sent() { return connection_->sent; }
  kj::WaitScope& WaitScope() { return connection_->client.getWaitScope(); }

  std::unique_ptr<Connection> connection_;
};

std::unique_ptr<Caller> Connect(const std::string& address) {
  return std::make_unique<CapnpCaller>(address);
}

}  // namespace

Peer CapnpPeer() {
  return {"Cap'n Proto RPC", Kind::kPeer, &Serve, &Connect, false, 10'000};
}

}  // namespace kavrel_bench
