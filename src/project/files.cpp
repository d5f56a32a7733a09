#include "project/files.hpp"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "project/project.hpp"

namespace kelvane {

namespace {

// What a listing says of the names of one directory.
enum class ListingState {
  listed,   // `names` holds every name, folded to lower case
  missing,  // the directory is not there: no name in it can be opened
  unknown,  // it could not be listed, or a name is not plain ASCII: try every open
};

struct DirectoryListing {
  std::string dir;
  ListingState state;
  std::vector<std::string> names;  // sorted
};

// Names are compared in ASCII lower case, so that a file system that
// ignores case still finds what the open would find. A name with a byte
// above 0x7f could fold in other ways: such a directory is not trusted.
bool fold_name(char* name) {
  for (char* c = name; *c; ++c) {
    if (static_cast<unsigned char>(*c) > 0x7f) return false;
    if (*c >= 'A' && *c <= 'Z') *c = char(*c - 'A' + 'a');
  }
  return true;
}

DirectoryListing list_directory(std::string const& dir) {
  DirectoryListing listing{dir, ListingState::unknown, {}};
  DIR* d = opendir(dir.empty() ? "." : dir.c_str());
  if (!d) {
    // A directory that is not there, or a path through a file: every open
    // below it fails the same way.
    if (errno == ENOENT || errno == ENOTDIR) listing.state = ListingState::missing;
    return listing;
  }
  bool plain = true;
  errno = 0;
  while (dirent const* entry = readdir(d)) {
    char name[sizeof entry->d_name];
    std::strcpy(name, entry->d_name);
    plain = fold_name(name) && plain;
    listing.names.emplace_back(name);
  }
  bool const complete = errno == 0;
  closedir(d);
  if (!complete || !plain) return listing;
  std::sort(listing.names.begin(), listing.names.end());
  listing.state = ListingState::listed;
  return listing;
}

// The listings of the load in progress; none outside a load.
bool listings_active = false;
std::vector<DirectoryListing> listings;

// The listing of `dir`, made at the first name asked for in it. A load asks
// for the names of one directory after the other: the last listing asked
// for is tried first.
DirectoryListing const& listing_of(std::string const& dir) {
  static size_t last = 0;
  if (last < listings.size() && listings[last].dir == dir) return listings[last];
  for (last = 0; last < listings.size(); ++last)
    if (listings[last].dir == dir) return listings[last];
  listings.push_back(list_directory(dir));
  return listings[last];
}

// False only if the open of `name` in `dir` would certainly fail.
bool may_open_in(std::string const& dir, char const* name) {
  if (!listings_active) return true;
  DirectoryListing const& listing = listing_of(dir);
  if (listing.state == ListingState::unknown) return true;
  if (listing.state == ListingState::missing) return false;
  char folded[256];
  size_t n = 0;
  for (; name[n]; ++n) {
    if (n + 1 == sizeof folded) return true;
    folded[n] = name[n];
  }
  folded[n] = 0;
  if (!fold_name(folded)) return true;
  std::string_view const wanted(folded, n);
  auto const at = std::lower_bound(listing.names.begin(), listing.names.end(), wanted,
                                   [](std::string const& a, std::string_view b) { return a < b; });
  return at != listing.names.end() && *at == wanted;
}

}  // namespace

bool open_for_reading(std::filesystem::path const& file, LineReader& reader) {
  if (!may_open_in(file.parent_path().native(), file.filename().c_str())) return false;
  return reader.open(file.c_str());
}

DirectoryListings::DirectoryListings() {
  listings.clear();
  listings_active = true;
}

DirectoryListings::~DirectoryListings() {
  listings_active = false;
  listings.clear();
}

bool open_versioned_file(std::filesystem::path const& file, OutputFile& out) {
  if (!out.open(file.c_str())) return false;
  out.out.str("#version ");
  out.out.decimal(kFileVersion);
  out.out.put('\n');
  return true;
}

SlotFileNames::SlotFileNames(char const* format) {
  // The format with two places for the digits where its conversion stands.
  size_t n = 0;
  for (char const* p = format; *p && n + 3 < sizeof text_; ++p) {
    if (p[0] == '%' && p[1] == 's') {
      digits_at_ = n;
      n += 2;
      ++p;
    } else if (std::strncmp(p, "%02x", 4) == 0) {
      digits_at_ = n;
      hex_ = true;
      n += 2;
      p += 3;
    } else {
      text_[n++] = *p;
    }
  }
  text_[n] = 0;
  size_ = n;
}

int SlotFileNames::slot_of(std::string_view name) const {
  if (name.size() != size_ || name.compare(0, digits_at_, text_, digits_at_) != 0 ||
      name.compare(digits_at_ + 2, std::string_view::npos, text_ + digits_at_ + 2) != 0)
    return -1;
  auto digit = [this](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= (hex_ ? 'f' : 'z')) return c - 'a' + 10;
    return -1;
  };
  int const high = digit(name[digits_at_]), low = digit(name[digits_at_ + 1]);
  if (high < 0 || low < 0) return -1;
  return high * (hex_ ? 16 : 36) + low;
}

char const* SlotFileNames::operator()(int slot) {
  if (hex_) {
    text_[digits_at_] = "0123456789abcdef"[(slot >> 4) & 15];
    text_[digits_at_ + 1] = "0123456789abcdef"[slot & 15];
  } else {
    zz_digits(text_ + digits_at_, slot);
  }
  return text_;
}

SlotFiles::SlotFiles(std::filesystem::path const& dir, char const* format, int count)
    : dir_(dir), names_(format), may_open_(size_t(count), 1) {
  if (!listings_active) return;
  DirectoryListing const& listing = listing_of(dir.native());
  if (listing.state == ListingState::unknown) return;
  std::fill(may_open_.begin(), may_open_.end(), 0);
  if (listing.state == ListingState::missing) return;
  // The listing holds the names folded to lower case, as the names of the
  // slots are: a slot may open where its name is there.
  for (std::string const& name : listing.names) {
    int const slot = names_.slot_of(name);
    if (slot >= 0 && slot < count) may_open_[size_t(slot)] = 1;
  }
}

int SlotFiles::last_that_may_open() const {
  for (size_t i = may_open_.size(); i > 0; --i)
    if (may_open_[i - 1]) return int(i - 1);
  return -1;
}

std::filesystem::path slot_file(std::filesystem::path const& dir, char const* format, int slot) {
  return dir / SlotFileNames(format)(slot);
}

std::filesystem::path track_directory(std::filesystem::path const& project, int track) {
  char name[16];
  std::snprintf(name, sizeof name, "track_%02d", track);
  return project / name;
}

}  // namespace kelvane
