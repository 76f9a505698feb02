#include "control_decoder.h"

#include <control_protocol.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "byte_port.h"
#include "expect.h"
#include "wire_model.h"

namespace kavrel_fuzz {
namespace {

using kavrel_programs::ControlCommand;
using kavrel_programs::ControlParcel;
using kavrel_programs::ControlReply;
using kavrel_programs::ControlRequest;

// Answers have at most 3 MiB in parts of 512 KiB.
constexpr std::int32_t kMostParts = 7;

bool IsKey(const std::string& text) {
  constexpr const char* kCharacters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+";
  return !text.empty() && text.size() <= 64 &&
         text.find_first_not_of(kCharacters) == std::string::npos;
}

// The frames that the port has sent, one behind the other.
Bytes SentBy(BytePort& port) {
  Bytes bytes;
  for (const Bytes& frame : port.TakeSent()) bytes.insert(bytes.end(), frame.begin(), frame.end());
  return bytes;
}

// --- Requests

// Whatever the commands are: nothing of a parcel may be overlooked or made up.
void ExpectSentAgain(const ControlRequest& request, const Items& items) {
  if (request.command == ControlCommand::kKey) {
    Expect(IsKey(request.key) && request.device >= 0 && request.device <= 4, "a key is one");
  }
  BytePort port;
  int sequence = 0;
  Expect(kavrel_programs::SendControlRequest(&port, request, sequence) == 0, "a request is sent");
  const Stream sent = ParseStream(SentBy(port));
  Expect(sent.frames.size() == 1 && sent.frames[0].content.items == items &&
             sent.frames[0].content.sequence == sequence,
         "a request that is sent again is the same");
}

bool DecodeRequests(ByteView bytes) {
  const Stream expected = ParseStream(bytes);
  BytePort port;
  port.Give(bytes);
  bool are_requests = !expected.frames.empty();
  for (const Stream::Entry& frame : expected.frames) {
    int error = 0;
    const ControlParcel parcel = ControlParcel::Take(&port, error);
    Expect(parcel && error == 0, "every well-formed frame is taken");
    const auto request = kavrel_programs::DecodeControlRequest(parcel);
    Expect(parcel.Sequence() == frame.content.sequence, "the sequence number");
    if (request) ExpectSentAgain(*request, frame.content.items);
    are_requests = are_requests && request;
  }
  int error = 0;
  Expect(!ControlParcel::Take(&port, error) && error < 0, "what is no frame is an error");
  return are_requests && !expected.has_fault && expected.rest.empty();
}

// --- Answers

struct Part {
  std::int32_t result;
  std::int32_t left;
  std::string text;
};

std::optional<Part> PartOf(const Items& items) {
  if (items.size() != 3) return std::nullopt;
  const auto* const result = std::get_if<std::int32_t>(&items[0]);
  const auto* const left = std::get_if<std::int32_t>(&items[1]);
  const auto* const text = std::get_if<std::string>(&items[2]);
  if (result == nullptr || left == nullptr || text == nullptr) return std::nullopt;
  if (*left < 0 || *left >= kMostParts) return std::nullopt;
  return Part{*result, *left, *text};
}

std::optional<ControlReply> ExpectedReply(const Stream& stream) {
  ControlReply reply;
  std::optional<std::int32_t> due;
  for (const Stream::Entry& frame : stream.frames) {
    if (frame.content.sequence != 0) continue;
    const auto part = PartOf(frame.content.items);
    if (!part || (due && part->left != *due)) return std::nullopt;
    reply.done = part->result == 1;
    reply.text += part->text;
    if (part->left == 0) return reply;
    due = part->left - 1;
  }
  return std::nullopt;
}

bool IsSame(const std::optional<ControlReply>& one, const std::optional<ControlReply>& other) {
  if (!one || !other) return one.has_value() == other.has_value();
  return one->done == other->done && one->text == other->text;
}

void ExpectSentAgain(const ControlReply& reply) {
  BytePort port;
  Expect(kavrel_programs::SendControlReply(&port, 7, reply), "an answer is sent");
  const Bytes sent = SentBy(port);
  port.Give(sent);
  int error = 0;
  Expect(IsSame(kavrel_programs::ReadControlReply(&port, 7, error), reply),
         "an answer that is sent again is the same");
}

bool DecodeReplies(ByteView bytes) {
  BytePort port;
  port.Give(bytes);
  int error = 0;
  const auto reply = kavrel_programs::ReadControlReply(&port, 0, error);
  Expect(IsSame(reply, ExpectedReply(ParseStream(bytes))), "an answer is one as described");
  Expect(reply || error < 0, "no answer is an error");
  if (reply) ExpectSentAgain(*reply);
  return reply.has_value();
}

}  // namespace

bool DecodeControl(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return false;
  // Exactly as large as the input, so that one byte beyond it is noticed.
  const Bytes bytes(data + 1, data + size);
  const bool decodes = data[0] % 2 == 0 ? DecodeRequests(bytes) : DecodeReplies(bytes);
  Expect(LiveParcels().empty(), "no parcel is left over");
  return decodes;
}

}  // namespace kavrel_fuzz
