// Whether to look for an answer before waiting for it.
#pragma once

namespace kavrel_rpc {

/// A service that runs on the processor of its client has often answered by the time that the
/// client's send returns. There a client that sleeps in its receive is also woken twice for each
/// answer, as the kernel tells it of room in its socket when the service takes the request; one
/// that sleeps in poll is woken once. Between processors an early look finds nothing and the first
/// of the two wake-ups costs no time. So the client looks first as long as that pays, and now and
/// then to see whether it would. One thread at a time.
class EarlyLook {
 public:
  static constexpr int kLooksAfterAFind = 64;
  static constexpr int kCallsBetweenLooks = 32;

  bool IsDue() {
    if (looks_left_ > 0) return true;
    if (--calls_left_ > 0) return false;
    calls_left_ = kCallsBetweenLooks;
    return true;
  }

  void Note(bool has_found) {
    if (has_found) {
      looks_left_ = kLooksAfterAFind;
    } else if (looks_left_ > 0) {
      --looks_left_;
    }
  }

 private:
  int looks_left_ = 0;
  int calls_left_ = kCallsBetweenLooks;
};

}  // namespace kavrel_rpc
