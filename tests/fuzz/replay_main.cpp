// Replays fuzz inputs without libFuzzer, so the GCC and sanitizer builds run every committed corpus
// file through the same entry point. Arguments: files or directories of inputs.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  int failures = 0, count = 0;
  const auto replay = [&](const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      fprintf(stderr, "replay: can't read %s\n", path.c_str());
      ++failures;
      return;
    }
    const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ++count;
  };
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    if (!fs::is_directory(argv[i], error)) replay(argv[i]);
    for (const auto& entry : fs::recursive_directory_iterator(argv[i], error))
      if (!entry.is_directory()) replay(entry.path());
  }
  printf("replayed %d inputs\n", count);
  return failures == 0 && count > 0 ? 0 : 1;
}
