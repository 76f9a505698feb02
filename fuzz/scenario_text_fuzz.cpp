#include "scenario_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kavrel_fuzz::ReadAsScenario(data, size);
  return 0;
}
