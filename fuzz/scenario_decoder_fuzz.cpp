#include "scenario_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kavrel_fuzz::DecodeScenario(data, size);
  return 0;
}
