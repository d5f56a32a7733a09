// Loads and saves a project at full capacity (bench/full_project.hpp) in
// process, and copies the same files plainly, to show what the text codecs
// cost on top of the file system.
//
// usage: load_save_bench [WORK_DIR] [ROUNDS]
// WORK_DIR defaults to one in /dev/shm (tmpfs) where there is one.
// With KELVANE_BENCH_KEEP set the work directory stays, so that the saved
// project can be compared with the generated one.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "full_project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

namespace {

Project bench_project;

// Reads every file below `from` and writes it below `to`.
void plain_copy(fs::path const& from, fs::path const& to) {
  std::vector<char> buffer(1 << 20);
  for (auto const& entry : fs::recursive_directory_iterator(from)) {
    fs::path const target = to / fs::relative(entry.path(), from);
    if (entry.is_directory()) {
      fs::create_directories(target);
      continue;
    }
    FILE* in = std::fopen(entry.path().c_str(), "r");
    FILE* out = std::fopen(target.c_str(), "w+");
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), in)) > 0) std::fwrite(buffer.data(), 1, n, out);
    std::fclose(in);
    std::fclose(out);
  }
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  fs::path const work = argc > 1 ? fs::path(argv[1]) : (fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path()) / "kelvane_load_save_bench";
  int const rounds = argc > 2 ? std::atoi(argv[2]) : 5;
  fs::path const source = work / "source";
  fs::path const saved = work / "saved";
  fs::path const copied = work / "copied";
  bench::generate_full_project(&bench_project, source);

  bench::TreeSize const size = bench::tree_size(source);
  std::printf("project: %d files, %ju bytes, %d patterns, %d tables, %d programs\n", size.files, size.bytes,
              kNumPatterns, kNumTables, kNumPrograms);

  double best_load_save = 1e9, best_load = 1e9, best_copy = 1e9;
  for (int r = 0; r < rounds; ++r) {
    fs::remove_all(saved);
    auto start = std::chrono::steady_clock::now();
    project_load(&bench_project, source.c_str());
    double const load = seconds_since(start);
    project_save(&bench_project, saved.c_str());
    double const load_save = seconds_since(start);
    if (bench_project.allocated_patterns != kNumPatterns || bench_project.allocated_tables != kNumTables ||
        bench_project.allocated_programs != kNumPrograms) {
      std::fprintf(stderr, "load found %d patterns, %d tables, %d programs\n", bench_project.allocated_patterns,
                   bench_project.allocated_tables, bench_project.allocated_programs);
      return 1;
    }

    fs::remove_all(copied);
    start = std::chrono::steady_clock::now();
    plain_copy(source, copied);
    double const copy = seconds_since(start);

    best_load = std::min(best_load, load);
    best_load_save = std::min(best_load_save, load_save);
    best_copy = std::min(best_copy, copy);
  }
  std::printf("load:        %8.3f ms\n", best_load * 1e3);
  std::printf("load + save: %8.3f ms\n", best_load_save * 1e3);
  std::printf("plain copy:  %8.3f ms\n", best_copy * 1e3);
  std::printf("ratio (load + save) / copy: %.2f\n", best_load_save / best_copy);
  if (std::getenv("KELVANE_BENCH_KEEP") == nullptr) fs::remove_all(work);
  return 0;
}
