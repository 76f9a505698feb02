#include "parcel_decoder.h"

#include <rpc-port.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>

#include "expect.h"
#include "greeting.h"
#include "intake.h"
#include "parcel.h"
#include "unique_fd.h"
#include "wire_model.h"

namespace kavrel_fuzz {
namespace {

using kavrel_rpc::Intake;
using kavrel_rpc::Parcel;

constexpr std::int32_t kUntouched = -77;

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

// Reads the next item through the C functions and takes it for what `expected` is.
struct ItemReader {
  rpc_port_parcel_h parcel;

  void operator()(std::int32_t expected) const {
    std::int32_t value = kUntouched;
    Expect(rpc_port_parcel_read_int32(parcel, &value) == 0 && value == expected, "a number");
  }
  void operator()(bool expected) const {
    bool value = !expected;
    Expect(rpc_port_parcel_read_bool(parcel, &value) == 0 && value == expected, "a bool");
  }
  void operator()(Count expected) const {
    int value = kUntouched;
    Expect(rpc_port_parcel_read_array_count(parcel, &value) == 0 && value == expected.value,
           "a count");
  }
  void operator()(const std::string& expected) const {
    char* value = nullptr;
    Expect(rpc_port_parcel_read_string(parcel, &value) == 0, "a text is read");
    const Text owned(value);
    Expect(expected == owned.get(), "a text");
  }
};

// Reads of all types but `type`; each must fail and leave its output alone.
void ExpectNoOther(rpc_port_parcel_h parcel, std::size_t type) {
  std::int32_t number = kUntouched;
  bool flag = true;
  char* text = nullptr;
  int count = kUntouched;
  if (type != 0) Expect(rpc_port_parcel_read_int32(parcel, &number) < 0, "no number there");
  if (type != 1) Expect(rpc_port_parcel_read_bool(parcel, &flag) < 0, "no bool there");
  if (type != 2) Expect(rpc_port_parcel_read_string(parcel, &text) < 0, "no text there");
  if (type != 3) Expect(rpc_port_parcel_read_array_count(parcel, &count) < 0, "no count there");
  Expect(number == kUntouched && flag && text == nullptr && count == kUntouched,
         "a failed read leaves its output as it was");
}

void WriteItem(rpc_port_parcel_h parcel, const Item& item) {
  int result = -1;
  if (const auto* number = std::get_if<std::int32_t>(&item)) {
    result = rpc_port_parcel_write_int32(parcel, *number);
  } else if (const auto* flag = std::get_if<bool>(&item)) {
    result = rpc_port_parcel_write_bool(parcel, *flag);
  } else if (const auto* text = std::get_if<std::string>(&item)) {
    result = rpc_port_parcel_write_string(parcel, text->c_str());
  } else {
    result = rpc_port_parcel_write_array_count(parcel, std::get<Count>(item).value);
  }
  Expect(result == 0, "what was read can be written");
}

void ExpectWritesBack(const Stream::Entry& frame) {
  const std::unique_ptr<Parcel> copy(Parcel::Create());
  copy->SetSequence(frame.content.sequence);
  if (frame.content.tag) Expect(copy->SetTag(frame.content.tag->c_str()) == 0, "a tag is set");
  for (const Item& item : frame.content.items) WriteItem(copy.get(), item);
  Expect(std::ranges::equal(copy->Frame(), frame.bytes), "what is written back are the same bytes");
}

void ReadParcel(const Stream::Entry& frame) {
  const std::unique_ptr<Parcel> parcel(Parcel::FromFrame(frame.bytes));
  Expect(parcel->Sequence() == frame.content.sequence, "the sequence number");
  char* tag = nullptr;
  Expect(parcel->CopyTag(&tag) == 0, "the tag is read");
  const Text owned(tag);
  Expect(frame.content.tag ? tag != nullptr && *frame.content.tag == tag : tag == nullptr,
         "the tag");
  for (const Item& item : frame.content.items) {
    ExpectNoOther(parcel.get(), item.index());
    std::visit(ItemReader{parcel.get()}, item);
  }
  constexpr std::size_t kNone = 4;
  ExpectNoOther(parcel.get(), kNone);
  ExpectWritesBack(frame);
}

// Two ends of a stream, one with an intake.
class Arrivals {
 public:
  Arrivals() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
      throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    sender_.Reset(ends[0]);
    receiver_.Reset(ends[1]);
  }

  void Send(ByteView bytes) const {
    Expect(::send(sender_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT) ==
               static_cast<ssize_t>(bytes.size()),
           "the socket holds the input");
  }

  // Takes what has arrived and calls `visit` for each frame. The fault, or null.
  template <class Visit>
  const char* TakeAll(const Visit& visit) {
    while (intake_.Receive(receiver_.get(), passing_, MSG_DONTWAIT) > 0) {
      kavrel_rpc::Bytes frame;
      Intake::Next next = intake_.Take(frame);
      for (; next == Intake::Next::kFrame; next = intake_.Take(frame)) visit(frame);
      if (next == Intake::Next::kFault) return intake_.fault();
      Expect(!intake_.HasNext(), "nothing is taken only when nothing is whole");
      intake_.Settle();
      // What others receive into the passing buffer must not matter.
      std::fill(passing_.begin(), passing_.end(), std::uint8_t{0xee});
    }
    return nullptr;
  }

  bool empty() const { return intake_.empty(); }

 private:
  kavrel_platform::UniqueFd sender_;
  kavrel_platform::UniqueFd receiver_;
  Bytes passing_ = Bytes(64);
  Intake intake_{Intake::Descriptors::kRefuse};
};

bool DecodeStream(ByteView bytes, std::size_t piece) {
  const Stream expected = ParseStream(bytes);
  Arrivals arrivals;
  std::size_t taken = 0;
  const auto visit = [&](kavrel_rpc::Bytes frame) {
    Expect(taken < expected.frames.size(), "no frame but those that are well-formed");
    Expect(std::ranges::equal(frame, expected.frames[taken].bytes), "frames as they were sent");
    ReadParcel(expected.frames[taken++]);
  };
  const char* fault = nullptr;
  for (ByteView rest = bytes; !rest.empty() && fault == nullptr;) {
    const ByteView next = rest.first(std::min(piece, rest.size()));
    rest = rest.subspan(next.size());
    arrivals.Send(next);
    fault = arrivals.TakeAll(visit);
  }
  Expect(taken == expected.frames.size(), "every well-formed frame is taken");
  Expect((fault != nullptr) == expected.has_fault, "a stream is refused when it has a fault");
  Expect(fault == nullptr || *fault != '\0', "a refusal has a reason");
  if (fault == nullptr) Expect(arrivals.empty() == expected.rest.empty(), "the rest is kept");
  return fault == nullptr && expected.rest.empty() && taken > 0;
}

template <class Message, class Check>
bool DecodeGreeting(ByteView bytes, const Check& check) {
  kavrel_rpc::GreetingReader<Message> reader;
  while (!reader.IsWhole() && !bytes.empty()) {
    const auto room = reader.Room();
    const std::size_t count = std::min({room.size(), bytes.size(), std::size_t{7}});
    std::copy_n(bytes.begin(), count, room.begin());
    reader.Filled(count);
    bytes = bytes.subspan(count);
  }
  if (!reader.IsWhole() || !reader.message().IsValid()) return false;
  check(reader.message());
  return true;
}

void CheckName(const kavrel_rpc::GreetingText& text) {
  const std::string name(text.Get());
  const auto allowed = [](char c) {
    return std::strchr("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-", c) !=
               nullptr &&
           c != '\0';
  };
  Expect(name.size() <= 64 && std::ranges::all_of(name, allowed), "a name is one or empty");
}

}  // namespace

bool DecodeParcels(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return false;
  // Exactly as large as the input, so that one byte beyond it is noticed.
  const Bytes rest(data + 1, data + size);
  switch (data[0]) {
    case 0:
      return DecodeGreeting<kavrel_rpc::Hello>(rest, [](const kavrel_rpc::Hello& hello) {
        Expect(hello.kind <= 1 && !hello.text.Get().empty(), "a greeting says who comes");
        CheckName(hello.text);
      });
    case 1:
      return DecodeGreeting<kavrel_rpc::Answer>(rest, [](const kavrel_rpc::Answer& answer) {
        Expect(answer.result <= 0, "an answer accepts or refuses");
        CheckName(answer.text);
      });
    default:
      return DecodeStream(rest, data[0]);
  }
}

}  // namespace kavrel_fuzz
