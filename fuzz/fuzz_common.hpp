#pragma once
// What the fuzz harnesses share: the input as a text, and a scratch file
// for the readers that take a path.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

namespace kelvane_fuzz {

// The input as a NUL-terminated text, cut at its first NUL.
inline std::string input_text(uint8_t const* data, size_t size) {
  std::string s(reinterpret_cast<char const*>(data), size);
  size_t const nul = s.find('\0');
  if (nul != std::string::npos) s.resize(nul);
  return s;
}

// A file of this process in the temporary directory, rewritten per input.
inline std::filesystem::path scratch_file(char const* name) {
  static std::filesystem::path const dir = [] {
    std::filesystem::path d = std::filesystem::temp_directory_path() / ("kelvane_fuzz_" + std::to_string(getpid()));
    std::filesystem::create_directories(d);
    return d;
  }();
  return dir / name;
}

inline void write_file(std::filesystem::path const& path, uint8_t const* data, size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
}

}  // namespace kelvane_fuzz
