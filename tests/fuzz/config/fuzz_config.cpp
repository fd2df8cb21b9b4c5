// Every matcher of the configuration reader on every line of arbitrary bytes: no crash, no overrun,
// no endless loop, lines always within the buffer.
#include <cstring>

#include "../FuzzInput.h"
#include "config/BtkCfgFile.h"

namespace {

// Short keys the fuzzer finds easily, and two real ones.
const char* const kKeys[] = {"k", "v", "speed", "task"};

void tryEveryMatcher(BtkCfgFile& cfg, const char* line) {
  for (const char* key : kKeys) {
    bool flag = false;
    int number = 0;
    double real = 0.0;
    std::string text;
    std::vector<int> ints;
    std::vector<double> reals;
    std::vector<std::string> texts;
    BtkCfgFile::matchKey(line, key);
    BtkCfgFile::getBool(line, key, flag);
    BtkCfgFile::getInt(line, key, number);
    BtkCfgFile::getDouble(line, key, real);
    if (BtkCfgFile::getString(line, key, text) && text.size() >= BtkCfgFile::kLineSize) abort();
    // These may read further lines; the line buffer of the caller stays as it was.
    cfg.getIntArray(line, key, ints);
    cfg.getDoubleArray(line, key, reals);
    cfg.getStringArray(line, key, texts);
    cfg.findBlock(line, key);
    BtkCfgFile::isBlockEnd(line);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  BtkCfgFile cfg(fuzzFile("input.cfg", data, size));
  char line[BtkCfgFile::kLineSize];
  while (cfg.readLine(line, sizeof line)) {
    if (strlen(line) >= sizeof line) abort();
    tryEveryMatcher(cfg, line);
  }
  return 0;
}
