// A running viewer, sent what the fuzz targets send to its decoders: on both of its ports, from
// several connections at once, while an ordinary client is served.
#include <fcntl.h>
#include <kavrel/app_api.h>
#include <raw_client.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "decoder_seeds.h"
#include "descriptors.h"
#include "programs.h"
#include "repetitions.h"

namespace kavrel_test {
namespace {

using rpc_test::RawClient;

// clang's thread sanitizer has a program of its own tell it names, over two pipes, once it wants
// any.
#if defined(__clang__)
#if __has_feature(thread_sanitizer)
#define KAVREL_TEST_SYMBOLIZER
#endif
#endif
#if defined(KAVREL_TEST_SYMBOLIZER)
constexpr long kOfTheSanitizer = 2;
#else
constexpr long kOfTheSanitizer = 0;
#endif

constexpr const char* kMethods = "org.zarnet.kavrel:KavrelAppApi";
constexpr const char* kControl = "org.zarnet.kavrel:KavrelViewerControl";

// What is sent to a port: requests that programs have sent, and changes of them.
class Traffic {
 public:
  Traffic(const std::string& target, const std::string& kind, std::ptrdiff_t skipped) {
    for (const Seed& seed : SeedsOf(target)) {
      if (seed.name.find(kind) == std::string::npos) continue;
      seeds_.emplace_back(seed.bytes.begin() + skipped, seed.bytes.end());
    }
  }

  const std::vector<Bytes>& seeds() const { return seeds_; }

  Bytes Next(std::mt19937& random) const {
    Bytes bytes = seeds_[random() % seeds_.size()];
    const Bytes& other = seeds_[random() % seeds_.size()];
    for (unsigned change = random() % 4; change > 0; --change) Mutate(bytes, other, random);
    // A true size lets the changes get as far as the items.
    const auto size = static_cast<std::uint32_t>(bytes.size());
    if (size >= sizeof size && random() % 4 != 0) std::memcpy(bytes.data(), &size, sizeof size);
    return bytes;
  }

 private:
  std::vector<Bytes> seeds_;
};

// One that keeps to nothing. It comes again when it has been dropped, and never waits.
class Attacker {
 public:
  Attacker(const std::string& runtime, const char* port, const Traffic& traffic)
      : runtime_(runtime), port_(port), traffic_(traffic) {}

  // False when the viewer does not even let it connect.
  bool Attack(std::mt19937& random) {
    if (client_ == nullptr || HasBeenDropped()) {
      client_ = std::make_unique<RawClient>(runtime_, port_);
      if (!client_->is_connected) return false;
    }
    const Bytes bytes = traffic_.Next(random);
    const ssize_t sent =
        ::send(client_->main.fd(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(bytes.size()) || random() % 64 == 0) client_.reset();
    return true;
  }

  void Leave() { client_.reset(); }

 private:
  // Reads what is there; an end among it.
  bool HasBeenDropped() const {
    std::uint8_t buffer[4096];
    ssize_t received = 0;
    do {
      received = ::recv(client_->main.fd(), buffer, sizeof buffer, MSG_DONTWAIT);
    } while (received > 0);
    return received == 0 || errno != EAGAIN;
  }

  const std::string runtime_;
  const char* const port_;
  const Traffic& traffic_;
  std::unique_ptr<RawClient> client_;
};

// A viewer built without optimisation takes long to draw what it is told to show.
int Attacks() {
#ifdef __OPTIMIZE__
  constexpr int kOrdinary = 1'000;
#else
  constexpr int kOrdinary = 200;
#endif
  return Repetitions(kOrdinary, 300'000);
}

class LiveFuzz : public Programs {
 protected:
  ~LiveFuzz() override {
    if (healthy_ != nullptr) kavrel_api_destroy(healthy_);
  }

  void Start() {
    viewer_ = StartViewer();
    healthy_ = kavrel_api_create("org.zarnet.kavrel");
    ASSERT_NE(healthy_, nullptr);
  }

  // The ordinary client's question.
  bool IsServed() const {
    int size = -1;
    return kavrel_api_get_window_size(healthy_, size) && size != -1;
  }

  long Descriptors() const { return OpenDescriptors(std::to_string(viewer_->pid())); }

  // When those who have gone are forgotten.
  long SettledDescriptors() const {
    constexpr int kQuestions = 10;
    long least = Descriptors();
    for (int i = 0; i < kQuestions && IsServed(); ++i) least = std::min(least, Descriptors());
    return least;
  }

  // Every request as it should be, so that what the viewer opens once is open.
  void WarmUp() {
    for (const char* port : {kMethods, kControl}) {
      RawClient client(directory_.path(), port);
      ASSERT_TRUE(client.is_connected);
      const Traffic& traffic = port == kMethods ? methods_ : control_;
      for (const Bytes& request : traffic.seeds()) client.main.Send(request);
    }
    ASSERT_TRUE(IsServed());
  }

  // Clients that have gone are forgotten one after the other, each question behind some of them.
  bool ReturnsTo(long descriptors) const {
    const auto limit = std::chrono::steady_clock::now() + kGenerous;
    while (Descriptors() > descriptors + kOfTheSanitizer) {
      if (!IsServed() || std::chrono::steady_clock::now() > limit) return false;
    }
    return true;
  }

  const ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.path()};
  const ScopedEnvironment timeout_{"KAVREL_RPC_TIMEOUT_MS", "30000"};
  // Seeds of the control port have one byte in front that is not sent.
  const Traffic methods_{"request", "", 0};
  const Traffic control_{"control", "request", 1};
  std::unique_ptr<ChildProcess> viewer_;
  kavrel_api_h healthy_ = nullptr;
};

TEST_F(LiveFuzz, AViewerServesOnWhateverIsSent) {
  constexpr int kBetweenQuestions = 20;
  const int attacks = Attacks();
  Start();
  WarmUp();
  const long descriptors = SettledDescriptors();
  std::vector<Attacker> attackers;
  attackers.reserve(4);
  for (int i = 0; i < 4; ++i) attackers.emplace_back(directory_.path(), kMethods, methods_);
  for (int i = 0; i < 2; ++i) attackers.emplace_back(directory_.path(), kControl, control_);
  std::mt19937 random(6'000);
  for (int i = 0; i < attacks; ++i) {
    ASSERT_TRUE(attackers[random() % attackers.size()].Attack(random)) << "attack " << i;
    if (i % kBetweenQuestions != 0) continue;
    ASSERT_TRUE(IsServed()) << "attack " << i;
  }
  for (Attacker& attacker : attackers) attacker.Leave();
  EXPECT_TRUE(ReturnsTo(descriptors)) << Descriptors() << " descriptors, once " << descriptors;
  EXPECT_TRUE(IsServed());
  viewer_->Signal(SIGTERM);
  EXPECT_EQ(viewer_->WaitForExit(), 0) << "it still ends as it should";
}

// Fills a pipe that nobody reads. Opened anew, so that only this end does not wait.
void FillErrorsOf(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/fd/2";
  const Descriptor pipe(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(pipe);
  const Bytes lines(4096, '\n');
  for (std::size_t size = lines.size(); size > 0;) {
    if (::write(pipe.get(), lines.data(), size) < 0) size /= 2;
  }
}

TEST_F(LiveFuzz, AViewerServesOnWhenNobodyReadsItsComplaints) {
  const ScopedEnvironment talkative("EINA_LOG_LEVEL", "3");
  Start();
  FillErrorsOf(viewer_->pid());
  WarmUp();
}

}  // namespace
}  // namespace kavrel_test
