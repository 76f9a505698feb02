// A Redis server on a private socket, its publish and subscribe for who follows.
#include <hiredis/hiredis.h>

#include <filesystem>
#include <stdexcept>

#include "child_process.h"
#include "stores/store.h"

namespace kavrel_bench {
namespace {

struct FreeContext {
  void operator()(redisContext* context) const { redisFree(context); }
};
struct FreeReply {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

class RedisConnection final : public Store {
 public:
  explicit RedisConnection(const std::string& socket) : context_(redisConnectUnix(socket.c_str())) {
    if (context_ == nullptr || context_->err != 0)
      throw std::runtime_error("no Redis at " + socket);
  }

  int Get() override {
    const Reply reply(static_cast<redisReply*>(redisCommand(context_.get(), "GET value")));
    Check(reply);
    return std::stoi(reply->str);
  }
  void Set(int value) override {
    Check(Reply(static_cast<redisReply*>(redisCommand(context_.get(), "SET value %d", value))));
  }
  // One round trip for both.
  void Tell(int value) override {
    redisAppendCommand(context_.get(), "SET value %d", value);
    redisAppendCommand(context_.get(), "PUBLISH value %d", value);
    Check(Next());
    Check(Next());
  }
  void Follow(const std::function<void()>& ready, const std::function<void()>& called) override {
    Check(Reply(static_cast<redisReply*>(redisCommand(context_.get(), "SUBSCRIBE value"))));
    ready();
    for (;;) {
      Check(Next());
      called();
    }
  }

 private:
  Reply Next() const {
    void* reply = nullptr;
    if (redisGetReply(context_.get(), &reply) != REDIS_OK)
      throw std::runtime_error("Redis is gone");
    return Reply(static_cast<redisReply*>(reply));
  }
  static void Check(const Reply& reply) {
    if (reply == nullptr || reply->type == REDIS_REPLY_ERROR) {
      throw std::runtime_error(reply == nullptr ? "Redis is gone" : reply->str);
    }
  }

  std::unique_ptr<redisContext, FreeContext> context_;
};

}  // namespace

StoreKind RedisStore(const std::string& directory, bool durable) {
  const std::string home = directory + (durable ? "/redis-durable" : "/redis");
  std::filesystem::create_directory(home);
  const std::string socket = home + "/socket";
  StoreKind kind{
      durable ? "Redis, each set synced" : "Redis",
      [socket]() -> std::unique_ptr<Store> { return std::make_unique<RedisConnection>(socket); }};
  auto server = std::make_shared<kavrel_test::ChildProcess>(kavrel_test::ChildOptions{
      .arguments = {"/usr/bin/redis-server", "--port", "0", "--unixsocket", socket, "--dir", home,
                    "--save", "", "--appendonly", durable ? "yes" : "no", "--appendfsync", "always",
                    "--maxclients", "4000"}});
  if (!server->WaitForLine("ready to accept", std::chrono::seconds(10))) {
    kind.missing = "redis-server does not start";
  }
  kind.server = server;
  return kind;
}

}  // namespace kavrel_bench
