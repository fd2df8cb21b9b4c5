// Arbitrary bytes as a situation file: loading must end, without a crash or a leak.
#include "../FuzzInput.h"
#include "config/SngSituation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  SngSituation().load(fuzzFile("input.stn", data, size));
  return 0;
}
