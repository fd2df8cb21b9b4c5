// Text helpers for tests that read logs and captured output.
#pragma once

#include <string>

// How often the needle occurs in the text, overlapping occurrences included.
inline size_t countOf(const std::string& text, const std::string& needle) {
  size_t count = 0;
  for (size_t at = 0; !needle.empty() && (at = text.find(needle, at)) != std::string::npos; ++at) ++count;
  return count;
}
