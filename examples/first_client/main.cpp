#include <kavrel/app_api.h>

#include <cstdio>

int main() {
  kavrel_api_h viewer = kavrel_api_create(KAVREL_VIEWER_APP_ID);
  if (viewer == nullptr) return 1;  // nobody serves; the log tells why

  kavrel_api_tunechannel(viewer, "7", "News", "DVB-T", "first-client");
  int size = 0;
  if (kavrel_api_get_window_size(viewer, size)) std::printf("window size %d\n", size);

  kavrel_api_destroy(viewer);
}
