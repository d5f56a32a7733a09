#pragma once
// Opening, reading and writing the key value files of a project.

#include <cstdio>
#include <filesystem>
#include <string_view>
#include <vector>

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

// Reads a file of a project into `reader`; false if it cannot be opened
// (as with fopen mode "r"). While a load lists its directories (a
// DirectoryListings stands), a name that the listing of its directory does
// not hold is not tried: its open would fail all the same. A listed file is
// opened as ever, and may still fail.
bool open_for_reading(std::filesystem::path const& file, LineReader& reader);

// The directory listings of one load. A load tries some four thousand
// numbered files, most of them missing; one listing per directory answers
// for all of them. Each directory is listed at the first file asked for in
// it; the listings end with the load, since a save adds files.
struct DirectoryListings {
  DirectoryListings();
  ~DirectoryListings();
  DirectoryListings(DirectoryListings const&) = delete;
  DirectoryListings& operator=(DirectoryListings const&) = delete;
};

// Opens a settings file for reading and calls read(file) on it; false,
// without a word, if it cannot be opened.
template <class F>
bool with_settings_file(std::filesystem::path const& file, F&& read) {
  LineReader f;
  if (!open_for_reading(file, f)) return false;
  read(f);
  return true;
}

// Reads a key value file into a record. A file that cannot be opened leaves
// the record as it is; false then.
template <class R>
bool read_settings_file(R& record, std::filesystem::path const& file, SettingsReset reset) {
  return with_settings_file(file, [&](LineReader& f) {
    if (reset == SettingsReset::defaults) dialog_set_default(record);
    if (reset == SettingsReset::zero) bytes_clear(record);
    dialog_read_file(record, f);
  });
}

// Reads a file of several records: each line is offered to the records in
// turn.
template <class... R>
bool read_settings_records(std::filesystem::path const& file, R&... records) {
  return with_settings_file(file, [&](LineReader& f) {
    settings_read_lines(f, [&](char const* key, char const* value) { (dialog_set_value(records, key, value), ...); });
  });
}

// Opens a file for writing ("w+") and puts its version line; false if it
// cannot be opened.
bool open_versioned_file(std::filesystem::path const& file, OutputFile& out);

// Opens a settings file for writing, with its version line, and calls
// write(file). A file that cannot be opened is reported as "error opening
// file '%s'"; false then.
template <class F>
bool write_versioned_settings(std::filesystem::path const& file, F&& write) {
  OutputFile f;
  if (!open_versioned_file(file, f)) {
    std::fprintf(stderr, "error opening file '%s'\n", file.c_str());
    return false;
  }
  write(f.out);
  f.close();
  return true;
}

// Writes a record as a key value file. `text_end` is that of
// dialog_append_to_file.
template <class R>
bool write_settings_file(R& record, std::filesystem::path const& file, char const* text_end = nullptr) {
  return write_versioned_settings(file, [&](TextOut& f) { dialog_append_to_file(record, f, text_end); });
}

// Writes several records, one after the other, in one file.
template <class... R>
bool write_settings_records(std::filesystem::path const& file, R&... records) {
  return write_versioned_settings(file, [&](TextOut& f) { (dialog_append_to_file(records, f), ...); });
}

// The file names of a kind of numbered slot, as snprintf puts them into a
// buffer of 128 bytes: `format` holds one "%s", which takes the two base-36
// digits of a slot ("pattern_%s.txt"), or one "%02x" ("patch_%02x.txt").
// Made by hand: a load asks for the names of four thousand slots.
class SlotFileNames {
 public:
  explicit SlotFileNames(char const* format);
  // The name of a slot from 0 to 1295 (from 0 to 255 for "%02x"); valid
  // until the next call.
  char const* operator()(int slot);
  // The slot that `name` is the name of, or -1.
  int slot_of(std::string_view name) const;

 private:
  char text_[128];
  size_t size_ = 0;
  size_t digits_at_ = 0;
  bool hex_ = false;
};

// The numbered slot files of one kind in one directory, `count` of them:
// their paths, and which of them may open. While a load lists its
// directories, that is the files the listing holds, found by going through
// the listing once: a load looks for some six thousand slot files, most of
// them missing. Elsewhere every file may open.
class SlotFiles {
 public:
  SlotFiles(std::filesystem::path const& dir, char const* format, int count);
  // False if the open of the slot's file would certainly fail.
  bool may_open(int slot) const { return may_open_[size_t(slot)] != 0; }
  // The last slot whose file may open, or -1.
  int last_that_may_open() const;
  std::filesystem::path path(int slot) { return dir_ / names_(slot); }

 private:
  std::filesystem::path dir_;
  SlotFileNames names_;
  std::vector<char> may_open_;
};

// "track_%02d"
std::filesystem::path track_directory(std::filesystem::path const& project, int track);

}  // namespace kelvane
