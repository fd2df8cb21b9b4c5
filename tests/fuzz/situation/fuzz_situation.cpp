// Arbitrary bytes as a situation file: loading must end, without a crash or a leak.
#include <cstdint>
#include <string>

#include "../config/fuzz_input_file.h"
#include "config/SngSituation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInputFile& input = FuzzInputFile::instance();
  const std::string path = input.write(data, size);
  if (path.empty()) return 0;
  SngSituation situation;
  situation.load(path);
  input.remove();
  return 0;
}
