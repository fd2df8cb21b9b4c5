// Replays fuzz inputs without libFuzzer, so the GCC and sanitizer builds run every committed corpus
// file through the same entry point. Arguments: files or directories of inputs.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replayFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    fprintf(stderr, "replay: can't read %s\n", path.c_str());
    return 1;
  }
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return 0;
}

int replayPath(const std::string& path, int& count) {
  struct stat info{};
  if (stat(path.c_str(), &info) != 0) {
    fprintf(stderr, "replay: no such input %s\n", path.c_str());
    return 1;
  }
  if (!S_ISDIR(info.st_mode)) {
    ++count;
    return replayFile(path);
  }
  DIR* dir = opendir(path.c_str());
  if (!dir) return 1;
  int failures = 0;
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    failures += replayPath(path + "/" + name, count);
  }
  closedir(dir);
  return failures;
}

}  // namespace

int main(int argc, char** argv) {
  int failures = 0, count = 0;
  for (int i = 1; i < argc; ++i) failures += replayPath(argv[i], count);
  printf("replayed %d inputs\n", count);
  return failures == 0 && count > 0 ? 0 : 1;
}
