#pragma once
// Opening, reading and writing the key value files of a project.

#include <cstdio>
#include <filesystem>

#include "settings/dialog.hpp"

namespace kelvane {

// The one version this system writes.
inline constexpr int kFileVersion = 1;

// What a record goes through before the lines of its file, if it opens.
enum class SettingsReset {
  defaults,  // every member to its type's default
  zero,      // every cell empty
  none,      // lines go on top of what the record holds
};

// Reads a key value file into a record. A file that cannot be opened leaves
// the record as it is, without a word; false then.
template <class R>
bool read_settings_file(R& record, std::filesystem::path const& file, SettingsReset reset) {
  FILE* f = std::fopen(file.c_str(), "r");
  if (!f) return false;
  if (reset == SettingsReset::defaults) dialog_set_default(record);
  if (reset == SettingsReset::zero) bytes_clear(record);
  dialog_read_file(record, f);
  std::fclose(f);
  return true;
}

// Opens a file for writing ("w+") and writes its version line; null if it
// cannot be opened.
FILE* open_versioned_file(std::filesystem::path const& file);

// Writes a record as a key value file behind its version line. A file that
// cannot be opened is reported as "error opening file '%s'"; false then.
// `text_end` is that of dialog_append_to_file.
template <class R>
bool write_settings_file(R& record, std::filesystem::path const& file, char const* text_end = nullptr) {
  FILE* f = open_versioned_file(file);
  if (!f) {
    std::fprintf(stderr, "error opening file '%s'\n", file.c_str());
    return false;
  }
  dialog_append_to_file(record, f, text_end);
  std::fclose(f);
  return true;
}

// "track_%02d"
std::filesystem::path track_directory(std::filesystem::path const& project, int track);

}  // namespace kelvane
