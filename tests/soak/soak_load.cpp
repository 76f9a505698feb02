// What commands a viewer and writes its state for as long as scripts/soak runs:
//
//   soak_load client COUNT    connects, sends COUNT one-way and COUNT two-way commands, disconnects
//   soak_load writer COUNT    sets two properties COUNT times
//
// again and again, with a pause in between that keeps the rate, until its standard input ends. Then
// it prints how many commands or sets that were. Ends with 1 as soon as one fails.
#include <kavrel/app_api.h>
#include <kavrel/state_api.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int kPauseMs = 100;

// The pause between two rounds; false when the input has ended.
bool MayGoOn() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, kPauseMs) == 0;
}

void SendOneWay(kavrel_api_h viewer, int number) {
  if (number == 0) return kavrel_api_show_channel_banner(viewer, 1);  // the only one that draws
  if (number % 2 == 0) return kavrel_api_set_language(viewer, "en");
  kavrel_api_send_command(viewer, "soak", "round");
}

bool CallTwoWay(kavrel_api_h viewer, int number) {
  int out[4] = {};
  switch (number % 3) {
    case 0:
      return kavrel_api_get_window_size(viewer, out[0]);
    case 1:
      return kavrel_api_get_selection_window_info(viewer, out[0], out[1], out[2], out[3]);
    default:
      return kavrel_api_get_selection_window_move_range(viewer, out[0], out[1], out[2], out[3]);
  }
}

bool CommandOnce(int count) {
  const kavrel_api_h viewer = kavrel_api_create(KAVREL_VIEWER_APP_ID);
  if (viewer == nullptr) return false;
  bool answered = true;
  for (int number = 0; number < count && answered; ++number) {
    SendOneWay(viewer, number);
    answered = CallTwoWay(viewer, number);
  }
  kavrel_api_destroy(viewer);
  return answered;
}

bool WriteOnce(int count) {
  bool set = true;
  for (int number = 0; number < count && set; ++number) {
    set = kavrel_set_pip_focus(number % 2) == 0 &&
          kavrel_set_more_key_option_type(number % 2 == 0 ? "short" : "a longer text") == 0;
  }
  return set;
}

}  // namespace

int main(int argc, char** argv) {
  const bool commands = argc == 3 && std::strcmp(argv[1], "client") == 0;
  if (argc != 3 || (!commands && std::strcmp(argv[1], "writer") != 0)) {
    std::fprintf(stderr, "usage: soak_load client|writer COUNT\n");
    return 2;
  }
  const int count = std::atoi(argv[2]);
  long done = 0;
  do {
    if (!(commands ? CommandOnce(count) : WriteOnce(count))) {
      std::fprintf(stderr, "soak_load %s: the viewer or the store failed after %ld\n", argv[1],
                   done);
      return 1;
    }
    done += 2L * count;
  } while (MayGoOn());
  std::printf("%ld\n", done);
  return 0;
}
