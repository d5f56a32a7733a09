#include "project/files.hpp"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <string>
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
bool fold_name(std::string& name) {
  for (char& c : name) {
    if (static_cast<unsigned char>(c) > 0x7f) return false;
    if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
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
    std::string name = entry->d_name;
    plain = fold_name(name) && plain;
    listing.names.push_back(std::move(name));
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

DirectoryListing const& listing_of(std::string const& dir) {
  for (DirectoryListing const& l : listings)
    if (l.dir == dir) return l;
  listings.push_back(list_directory(dir));
  return listings.back();
}

// False only if the open of `file` would certainly fail.
bool may_open(std::filesystem::path const& file) {
  if (!listings_active) return true;
  DirectoryListing const& listing = listing_of(file.parent_path().native());
  if (listing.state == ListingState::unknown) return true;
  if (listing.state == ListingState::missing) return false;
  std::string name = file.filename().native();
  if (!fold_name(name)) return true;
  return std::binary_search(listing.names.begin(), listing.names.end(), name);
}

}  // namespace

bool open_for_reading(std::filesystem::path const& file, LineReader& reader) {
  if (!may_open(file)) return false;
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
