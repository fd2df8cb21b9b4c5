#include "toolkit/BtkFiles.h"

#include <dirent.h>
#include <fnmatch.h>

#include <cstring>

int btkListDirectory(const std::string& dir, const std::string& infix, std::vector<std::string>& names) {
  DIR* handle = opendir(dir.c_str());
  if (!handle) return -1;
  // The pattern's trailing "*.*" means "any name" on the original platform, dot or not, so a block
  // directory such as BLK046N007E01 matches: on POSIX that is a plain "*".
  const std::string pattern = "*" + infix + "*";
  std::vector<std::string> found;
  while (dirent* entry = readdir(handle)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    if (fnmatch(pattern.c_str(), entry->d_name, 0) == 0) found.emplace_back(entry->d_name);
  }
  closedir(handle);
  if (found.empty()) return -1;
  names.insert(names.end(), found.begin(), found.end());
  return static_cast<int>(names.size());
}
