#pragma once
// The scratch directory of the unit tests: one directory in the system's
// temporary directory for the whole test program, removed when the program
// ends, so that a run leaves nothing behind.

#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

inline std::filesystem::path unit_test_scratch_root() {
  struct Root {
    std::filesystem::path path;
    pid_t owner;
    ~Root() {
      // A death test's child ends without cleaning up the parent's files.
      if (getpid() != owner) return;
      std::error_code ec;
      std::filesystem::remove_all(path, ec);
    }
  };
  static Root const root{std::filesystem::temp_directory_path() / ("kelvane_unit_tests_" + std::to_string(getpid())),
                         getpid()};
  return root.path;
}
