// Bytes of strangers: frames, what is left of them between receives, and parcels made from them.
#include "frame.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bounds.h"
#include "faults.h"
#include "intake.h"
#include "next_function.h"
#include "parcel.h"

namespace {

#ifdef KAVREL_CALLS_CAN_FAIL
int g_receive_error = 0;  // what the next receive fails with; 0: it does not
#endif

}  // namespace

#ifdef KAVREL_CALLS_CAN_FAIL
// Stands in for the C library's.
extern "C" ssize_t recvmsg(int socket, struct msghdr* message, int flags) {
  if (const int error = std::exchange(g_receive_error, 0); error != 0) {
    errno = error;
    return -1;
  }
  return ::syscall(SYS_recvmsg, socket, message, flags);
}
#endif

namespace {

using kavrel_rpc::Intake;
using kavrel_rpc::Parcel;

std::vector<std::uint8_t> TypicalFrame() {
  const std::unique_ptr<Parcel> parcel(Parcel::Create());
  parcel->SetTag("1.9.1");
  parcel->WriteNumber(kavrel_rpc::frame::kInt32, 10);
  parcel->WriteBool(true);
  parcel->WriteString("a text");
  parcel->WriteNumber(kavrel_rpc::frame::kArrayCount, 2);
  parcel->WriteString("");
  parcel->WriteString("b");
  const auto frame = parcel->Frame();
  return {frame.begin(), frame.end()};
}

// Reads whatever there is, as readers do that do not know what comes.
void ReadAll(Parcel& parcel) {
  for (;;) {
    std::int32_t number = 0;
    bool flag = false;
    char* text = nullptr;
    if (parcel.ReadNumber(kavrel_rpc::frame::kInt32, &number) == 0) continue;
    if (parcel.ReadNumber(kavrel_rpc::frame::kArrayCount, &number) == 0) continue;
    if (parcel.ReadBool(&flag) == 0) continue;
    if (parcel.ReadString(&text) != 0) break;
    EXPECT_LE(std::string(text).size(), parcel.Frame().size());
    std::free(text);
  }
  char* tag = nullptr;
  EXPECT_EQ(parcel.CopyTag(&tag), 0);
  std::free(tag);
}

// With the address sanitizer this is a search for reads outside the frame.
TEST(Frame, MutatedOnesAreRefusedOrReadable) {
  std::mt19937 random(12345);
  const auto original = TypicalFrame();
  int accepted = 0;
  for (int round = 0; round < 100000; ++round) {
    auto bytes = original;
    for (std::size_t flips = 1 + random() % 3; flips > 0; --flips) {
      bytes[4 + random() % (bytes.size() - 4)] = static_cast<std::uint8_t>(random());
    }
    if (random() % 2 == 0) bytes.resize(10 + random() % (bytes.size() - 10));
    // Exactly as large as the frame, so that one byte beyond it is noticed.
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    const kavrel_rpc::Bytes frame(exact.get(), bytes.size());
    if (kavrel_rpc::frame::FindFault(frame) != nullptr) continue;
    ++accepted;
    const std::unique_ptr<Parcel> parcel(Parcel::FromFrame(frame));
    ReadAll(*parcel);
  }
  EXPECT_GT(accepted, 1000) << "the mutations are too coarse to try readers";
}

// How many allocations of it fail before it succeeds; what fails gives nothing.
template <class Call>
int FailEach(const Call& call) {
  for (int nth = 1;; ++nth) {
    const kavrel_test::ScopedFault fault(kavrel_test::Fault::kMemory, nth);
    const bool succeeded = call();
    EXPECT_EQ(succeeded, !fault.has_occurred()) << "allocation " << nth;
    if (!fault.has_occurred()) return nth - 1;
  }
}

TEST(Frame, WithoutMemoryForItIsNoParcel) {
  std::vector<std::unique_ptr<Parcel>> others;  // have what earlier parcels left behind
  for (std::size_t i = 0; i <= Parcel::kSpareObjects; ++i) others.emplace_back(Parcel::Create());
  const std::unique_ptr<Parcel> large(Parcel::Create());
  ASSERT_EQ(large->SetTag("1.9.1"), 0);
  ASSERT_EQ(large->WriteString(std::string(100000, 'x').c_str()), 0);
  std::unique_ptr<Parcel> parcel;
  EXPECT_GE(FailEach([&] {
              parcel.reset(Parcel::FromFrame(large->Frame()));
              return parcel != nullptr;
            }),
            1);
  char* text = nullptr;
  FailEach([&] { return parcel->CopyTag(&text) == 0; });
  EXPECT_STREQ(text, "1.9.1");
  std::free(std::exchange(text, nullptr));
  FailEach([&] { return parcel->ReadString(&text) == 0; });
  EXPECT_EQ(std::string(text).size(), 100000U);
  std::free(text);
}

/// A socket pair and an intake on one end.
class IntakeTest : public testing::Test {
 protected:
  IntakeTest() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0); }
  ~IntakeTest() override {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }
  void Send(const std::vector<std::uint8_t>& bytes) const {
    ASSERT_EQ(::send(ends_[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  ssize_t Receive() { return intake_.Receive(ends_[0], passing_, MSG_DONTWAIT); }

  int ends_[2];
  std::vector<std::uint8_t> passing_ = std::vector<std::uint8_t>(64);
  Intake intake_{Intake::Descriptors::kRefuse};
};

TEST_F(IntakeTest, GivesFramesHoweverTheyAreCut) {
  const auto frame = TypicalFrame();
  std::vector<std::uint8_t> many;
  for (int i = 0; i < 20; ++i) many.insert(many.end(), frame.begin(), frame.end());
  for (std::size_t piece = 1; piece < 150; ++piece) {
    std::size_t taken = 0;
    for (std::size_t at = 0; at < many.size(); at += piece) {
      Send({many.begin() + static_cast<std::ptrdiff_t>(at),
            many.begin() + static_cast<std::ptrdiff_t>(std::min(at + piece, many.size()))});
      while (Receive() > 0) {
        kavrel_rpc::Bytes got;
        while (intake_.Take(got) == Intake::Next::kFrame) {
          ASSERT_TRUE(std::equal(got.begin(), got.end(), frame.begin(), frame.end()));
          ++taken;
        }
        intake_.Settle();
        // What others receive into the passing buffer must not matter.
        std::fill(passing_.begin(), passing_.end(), std::uint8_t{0xee});
      }
    }
    ASSERT_EQ(taken, 20U) << "pieces of " << piece;
    ASSERT_TRUE(intake_.empty());
  }
}

TEST_F(IntakeTest, PutsALargeFrameTogether) {
  const std::unique_ptr<Parcel> parcel(Parcel::Create());
  parcel->WriteString(std::string(50000, 'x').c_str());
  const auto frame = parcel->Frame();
  std::size_t sent = 0;
  kavrel_rpc::Bytes got;
  while (intake_.Take(got) != Intake::Next::kFrame) {
    const std::size_t piece = std::min<std::size_t>(frame.size() - sent, 999);
    Send({frame.begin() + static_cast<std::ptrdiff_t>(sent),
          frame.begin() + static_cast<std::ptrdiff_t>(sent + piece)});
    sent += piece;
    ASSERT_GT(Receive(), 0);
    if (!intake_.HasNext()) intake_.Settle();
    ASSERT_TRUE(sent < frame.size() || piece > 0);
    while (!intake_.HasNext() && Receive() > 0) intake_.Settle();
  }
  EXPECT_TRUE(std::equal(got.begin(), got.end(), frame.begin(), frame.end()));
  // The room for it is not kept: the next small frame is put together in room of its own.
  intake_.Settle();
  EXPECT_TRUE(intake_.empty());
  const auto small = TypicalFrame();
  Send(small);
  while (!intake_.HasNext()) {
    ASSERT_GT(Receive(), 0);
    intake_.Settle();
  }
  ASSERT_EQ(intake_.Take(got), Intake::Next::kFrame);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), small.begin(), small.end()));
}

#ifdef KAVREL_CALLS_CAN_FAIL
TEST_F(IntakeTest, TellsWhatInterruptedAReceive) {
  g_receive_error = EINTR;
  EXPECT_EQ(intake_.Receive(ends_[0], passing_, 0), -EINTR);
  // One that does not wait is told as if nothing had been there.
  g_receive_error = EINTR;
  EXPECT_EQ(Receive(), -EAGAIN);
  Intake trusting{Intake::Descriptors::kIgnore};
  EXPECT_EQ(trusting.Receive(ends_[0], passing_, MSG_DONTWAIT), -EAGAIN);
}
#endif

TEST_F(IntakeTest, RefusesDescriptors) {
  std::uint8_t byte = 1;
  struct iovec piece {
    &byte, 1
  };
  alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  struct msghdr message {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  struct cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &ends_[1], sizeof(int));
  ASSERT_EQ(::sendmsg(ends_[1], &message, 0), 1);
  EXPECT_EQ(Receive(), -EBADMSG);
}

TEST_F(IntakeTest, TellsTheEnd) {
  EXPECT_EQ(Receive(), -EAGAIN);
  ::shutdown(ends_[1], SHUT_RDWR);
  EXPECT_EQ(Receive(), 0);
}

TEST_F(IntakeTest, RefusesSizesThatAreNotAllowed) {
  for (const std::uint32_t size :
       {0U, 1U, 9U, static_cast<std::uint32_t>(kavrel_rpc::kMaxFrameSize) + 1, 0xffffffffU}) {
    std::vector<std::uint8_t> bytes(sizeof size);
    std::memcpy(bytes.data(), &size, sizeof size);
    Send(bytes);
    ASSERT_GT(Receive(), 0);
    EXPECT_TRUE(intake_.HasNext()) << size;
    kavrel_rpc::Bytes got;
    EXPECT_EQ(intake_.Take(got), Intake::Next::kFault) << size;
    intake_.Discard();
  }
}

}  // namespace
