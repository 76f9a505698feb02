// Bytes of strangers: frames, what is left of them between receives, and parcels made from them.
#include "frame.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bounds.h"
#include "intake.h"
#include "parcel.h"

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
    kavrel_rpc::Bytes got;
    EXPECT_EQ(intake_.Take(got), Intake::Next::kFault) << size;
    intake_.Discard();
  }
}

}  // namespace
