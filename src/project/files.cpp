#include "project/files.hpp"

#include "project/project.hpp"

namespace kelvane {

FILE* open_versioned_file(std::filesystem::path const& file) {
  FILE* f = std::fopen(file.c_str(), "w+");
  if (f) std::fprintf(f, "#version %d\n", kFileVersion);
  return f;
}

std::filesystem::path slot_file(std::filesystem::path const& dir, char const* format, int slot) {
  char digits[3];
  zz_digits(digits, slot);
  digits[2] = 0;
  char name[128];
  std::snprintf(name, sizeof name, format, digits);
  return dir / name;
}

std::filesystem::path track_directory(std::filesystem::path const& project, int track) {
  char name[16];
  std::snprintf(name, sizeof name, "track_%02d", track);
  return project / name;
}

}  // namespace kelvane
