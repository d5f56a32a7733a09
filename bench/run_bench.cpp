// Times whole runs of the built project_manager, as the musician starts it:
//
// 1. A full-capacity source (every pattern, table and program slot, all
//    patch slots of sixteen tracks of mixed types, every FX patch, chord
//    and modulation memory entry and program variable) and a target with
//    the same track types: a whole-track import that pulls in every kind,
//    then the save. Best of 10, against `cp -r` of the source tree, best
//    of 10, in the same run of this program.
// 2. Runs between two empty projects, and into a target that does not
//    exist yet: the median of 20.
// 3. The peak resident memory of the full run.
//
// This program, and so every process it starts, runs on one core (the
// first one it may use, CPU 0 where it may), as `taskset -c 0` would run
// it: the tool and `cp -r` get the same single core. The projects are made
// by a child process: a process started from this one counts the memory
// this one holds as its own, in its peak resident memory.
//
// usage: run_bench [PROJECT_MANAGER] [WORK_DIR]
// PROJECT_MANAGER defaults to the project_manager of the build directory
// this program lies in; WORK_DIR to a directory in /dev/shm, so that the
// file system is tmpfs. With KELVANE_BENCH_KEEP set the work directory
// stays.

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "full_project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

extern char** environ;

namespace {

Project scratch;

constexpr int kFullRuns = 10;
constexpr int kEmptyRuns = 20;
constexpr double kFullRatioTarget = 3.0;
constexpr double kFullRatioAim = 2.0;
constexpr double kEmptyTargetMs = 8.0;
constexpr double kMemoryFactorTarget = 1.1;

// Pins this process, and what it starts, to one core: CPU 0, or the first
// one it may run on. Returns the core, or -1 if it cannot be pinned.
// Runs `make` in a child process and waits for it.
template <class F>
void in_child(F&& make) {
  std::fflush(stdout);
  pid_t const pid = fork();
  if (pid < 0) {
    std::fprintf(stderr, "cannot fork\n");
    std::exit(1);
  }
  if (pid == 0) {
    make();
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "making the projects failed\n");
    std::exit(1);
  }
}

int pin_to_one_core() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return -1;
  int cpu = 0;
  while (cpu < CPU_SETSIZE && !CPU_ISSET(cpu, &allowed)) ++cpu;
  if (cpu == CPU_SETSIZE) return -1;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(cpu, &one);
  return sched_setaffinity(0, sizeof one, &one) == 0 ? cpu : -1;
}

struct ProcessRun {
  double ms;
  long max_rss_kb;
  int status;
};

// Runs a program with its output to /dev/null and waits for it.
ProcessRun run_process(std::vector<std::string> const& args) {
  std::vector<char*> argv;
  for (std::string const& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  auto const start = std::chrono::steady_clock::now();
  pid_t pid;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    std::fprintf(stderr, "cannot start %s\n", argv[0]);
    std::exit(1);
  }
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  double const ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  posix_spawn_file_actions_destroy(&actions);
  return {ms, usage.ru_maxrss, status};
}

void require_success(ProcessRun const& r, char const* what) {
  if (WIFEXITED(r.status) && WEXITSTATUS(r.status) == 0) return;
  std::fprintf(stderr, "%s failed (status %d)\n", what, r.status);
  std::exit(1);
}

void copy_tree(fs::path const& from, fs::path const& to) {
  fs::remove_all(to);
  fs::copy(from, to, fs::copy_options::recursive);
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  size_t const n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

std::vector<std::string> import_args(fs::path const& binary, fs::path const& src, fs::path const& tgt) {
  std::string const track = std::to_string(bench::kSourceTrack);
  return {binary.string(), "--project_src", src.string(), "--project_tgt", tgt.string(),
          "--source_track", track, "--target_track", track, "--whole_track"};
}

void print_verdict(bool met) { std::printf("  %s\n", met ? "met" : "NOT MET"); }

}  // namespace

int main(int argc, char** argv) {
  fs::path const binary = argc > 1 ? fs::path(argv[1])
                                   : fs::canonical("/proc/self/exe").parent_path().parent_path() / "project_manager";
  fs::path const work = argc > 2 ? fs::path(argv[2]) : fs::path("/dev/shm") / "kelvane_run_bench";
  if (!fs::exists(binary)) {
    std::fprintf(stderr, "no project_manager at %s\n", binary.c_str());
    return 1;
  }
  int const core = pin_to_one_core();
  if (core < 0) {
    std::fprintf(stderr, "cannot pin to one core\n");
    return 1;
  }
  std::printf("pinned to CPU %d: the tool and cp -r run on that one core\n", core);
  fs::remove_all(work);
  fs::create_directories(work);
  fs::path const source = work / "source";
  fs::path const target_template = work / "target_template";
  fs::path const target = work / "target";
  fs::path const copied = work / "copied";
  fs::path const empty_a = work / "empty_a";
  fs::path const empty_b = work / "empty_b";
  fs::path const saved_a = work / "saved_a";
  fs::path const saved_b = work / "saved_b";
  in_child([&] {
    bench::generate_full_project(&scratch, source);
    bench::generate_target_project(&scratch, target_template);
    project_initialize(&scratch);
    project_save(&scratch, saved_a.c_str());
  });

  bench::TreeSize const size = bench::tree_size(source);
  std::printf("source project: %d files, %ju bytes; whole-track import of track %d\n", size.files, size.bytes,
              bench::kSourceTrack);

  // 1. The full run against cp -r, alternating, best of each.
  double best_run = 1e30, best_copy = 1e30;
  long max_rss_kb = 0;
  for (int r = 0; r < kFullRuns; ++r) {
    copy_tree(target_template, target);
    ProcessRun const run = run_process(import_args(binary, source, target));
    require_success(run, "full run");
    best_run = std::min(best_run, run.ms);
    max_rss_kb = std::max(max_rss_kb, run.max_rss_kb);

    fs::remove_all(copied);
    ProcessRun const copy = run_process({"/bin/cp", "-r", source.string(), copied.string()});
    require_success(copy, "cp -r");
    best_copy = std::min(best_copy, copy.ms);
  }
  int const saved_files = bench::tree_size(target).files;
  double const ratio = best_run / best_copy;
  std::printf("full run (load both, import, save %d files): %8.2f ms best of %d\n", saved_files, best_run,
              kFullRuns);
  std::printf("cp -r of the source tree:                     %8.2f ms best of %d\n", best_copy, kFullRuns);
  std::printf("ratio run / cp -r: %.2f (target <= %.2f, aim %.2f)", ratio, kFullRatioTarget, kFullRatioAim);
  print_verdict(ratio <= kFullRatioTarget);

  // 2. Empty runs: two empty directories, two saved empty projects, and an
  // empty source into a target that does not exist.
  fs::create_directories(empty_a);
  struct EmptyCase {
    char const* label;
    fs::path src;
    fs::path tgt;
    fs::path const* tgt_template;  // copied to tgt before each run, or null: tgt removed
  };
  EmptyCase const cases[] = {
      {"empty directories", empty_a, empty_b, &empty_a},
      {"saved empty projects", saved_a, saved_b, &saved_a},
      {"target that does not exist", empty_a, work / "new_target", nullptr},
  };
  long empty_rss_kb = 0;
  for (EmptyCase const& c : cases) {
    std::vector<double> times;
    for (int r = 0; r < kEmptyRuns; ++r) {
      if (c.tgt_template)
        copy_tree(*c.tgt_template, c.tgt);
      else
        fs::remove_all(c.tgt);
      ProcessRun const run = run_process(import_args(binary, c.src, c.tgt));
      require_success(run, c.label);
      times.push_back(run.ms);
      empty_rss_kb = std::max(empty_rss_kb, run.max_rss_kb);
    }
    double const m = median(times);
    std::printf("empty run, %-27s %8.2f ms median of %d (target <= %.0f ms, ratio %.2f)", c.label, m, kEmptyRuns,
                kEmptyTargetMs, m / kEmptyTargetMs);
    print_verdict(m <= kEmptyTargetMs);
  }

  // 3. Peak resident memory.
  double const project_mb = double(sizeof(Project)) / (1024.0 * 1024.0);
  double const limit_kb = kMemoryFactorTarget * 3 * double(sizeof(Project)) / 1024.0;
  std::printf("peak RSS of the full run: %.1f MB = %.2f x 3 sizeof(Project) of %.1f MB (target <= %.2f)",
              max_rss_kb / 1024.0, max_rss_kb * 1024.0 / (3 * double(sizeof(Project))), project_mb,
              kMemoryFactorTarget);
  print_verdict(max_rss_kb <= limit_kb);
  std::printf("peak RSS of the empty runs: %.1f MB\n", empty_rss_kb / 1024.0);

  if (std::getenv("KELVANE_BENCH_KEEP") == nullptr) fs::remove_all(work);
  return 0;
}
