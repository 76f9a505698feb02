// This project's own command interface.
#include <glib.h>
#include <kavrel/app_api.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "null_service.h"
#include "peers/peer.h"

namespace kavrel_bench {
namespace {

class Service final : public kavrel_test::NullService {
 public:
  using NullService::NullService;
  bool GetWindowSize(int& out1) override {
    out1 = kWindowSize;
    return true;
  }
};

class Factory final : public Service::Factory {
 public:
  std::unique_ptr<Service::ServiceBase> MakeService(std::string sender,
                                                    std::string instance) override {
    return std::make_unique<Service>(std::move(sender), std::move(instance));
  }
};

/// Services have names, not addresses: one for each directory.
std::string NameOf(const std::string& address) {
  return "org.zarnet.bench." + std::filesystem::path(address).filename().string();
}

void Serve(const std::string& address, const std::function<void()>& ready) {
  setenv("KAVREL_APP_ID", NameOf(address).c_str(), 1);
  rpc_port::KavrelAppApiStub::stub::KavrelAppApi stub;
  stub.Listen(std::make_shared<Factory>());
  ready();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

class KavrelCaller final : public Caller {
 public:
  explicit KavrelCaller(const std::string& name) : handle_(kavrel_api_create(name.c_str())) {
    if (handle_ == nullptr) throw std::runtime_error("the viewer does not answer");
  }
  KavrelCaller(const KavrelCaller&) = delete;
  KavrelCaller& operator=(const KavrelCaller&) = delete;
  ~KavrelCaller() override { kavrel_api_destroy(handle_); }

  void TwoWay() override {
    int size = 0;
    if (!kavrel_api_get_window_size(handle_, size) || size != kWindowSize) {
      throw std::runtime_error("kavrel_api_get_window_size failed");
    }
  }
  void OneWay(int number) override { kavrel_api_show_rating_banner(handle_, number, text_, text_); }

 private:
  kavrel_api_h handle_;
  const std::string text_ = kText;
};

std::unique_ptr<Caller> Connect(const std::string& address) {
  return std::make_unique<KavrelCaller>(NameOf(address));
}

}  // namespace

Peer KavrelPeer() {
  return {"kavrel_api", Kind::kOurs, &Serve, &Connect};
}

}  // namespace kavrel_bench
