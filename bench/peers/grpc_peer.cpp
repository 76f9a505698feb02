// gRPC over a local socket, with the synchronous interface that its tutorials show.
#include <grpcpp/grpcpp.h>

#include <stdexcept>

#include "peers/peer.h"
#include "viewer.grpc.pb.h"

namespace kavrel_bench {
namespace {

class Service final : public Viewer::Service {
 public:
  grpc::Status GetWindowSize(grpc::ServerContext* /*context*/, const Nothing* /*request*/,
                             WindowSize* size) override {
    size->set_size(kWindowSize);
    size->set_result(true);
    return grpc::Status::OK;
  }
  grpc::Status Show(grpc::ServerContext* /*context*/, grpc::ServerReader<Banner>* reader,
                    Nothing* /*nothing*/) override {
    Banner banner;
    while (reader->Read(&banner)) {
    }
    return grpc::Status::OK;
  }
};

void Serve(const std::string& address, const std::function<void()>& ready) {
  Service service;
  grpc::ServerBuilder builder;
  builder.AddListeningPort("unix:" + address, grpc::InsecureServerCredentials());
  builder.RegisterService(&service);
  const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
  if (server == nullptr) throw std::runtime_error("cannot listen on " + address);
  ready();
  server->Wait();
}

class GrpcCaller final : public Caller {
 public:
  explicit GrpcCaller(const std::string& address) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);  // or all clients share a connection
    stub_ = Viewer::NewStub(grpc::CreateCustomChannel(
        "unix:" + address, grpc::InsecureChannelCredentials(), arguments));
    TwoWay();
  }

  void TwoWay() override {
    grpc::ClientContext context;
    WindowSize size;
    Check(stub_->GetWindowSize(&context, Nothing(), &size));
  }
  void OneWay(int number) override {
    if (!writer_) {
      context_.emplace();
      writer_ = stub_->Show(&*context_, &nothing_);
    }
    banner_.set_number(number);
    banner_.set_first(kText);
    banner_.set_second(kText);
    if (!writer_->Write(banner_)) throw std::runtime_error("gRPC: Show failed");
  }
  void Settle() override {
    if (!writer_) return;
    writer_->WritesDone();
    Check(writer_->Finish());
    writer_.reset();
  }

 private:
  static void Check(const grpc::Status& status) {
    if (!status.ok()) throw std::runtime_error("gRPC: " + status.error_message());
  }

  std::unique_ptr<Viewer::Stub> stub_;
  std::optional<grpc::ClientContext> context_;
  std::unique_ptr<grpc::ClientWriter<Banner>> writer_;
  Nothing nothing_;
  Banner banner_;
};

std::unique_ptr<Caller> Connect(const std::string& address) {
  return std::make_unique<GrpcCaller>(address);
}

}  // namespace

Peer GrpcPeer() {
  return {"gRPC", Kind::kPeer, &Serve, &Connect, false, 4'000};
}

}  // namespace kavrel_bench
