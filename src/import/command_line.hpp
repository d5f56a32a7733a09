#pragma once
// The command line of a run, shared by the tool and by every program that
// takes the same arguments: the options, and the run they ask for, step by
// step in the order the tool reads its arguments and prints its progress.
// Built with cxxopts in its no-exceptions mode.

#include <cstdio>
#include <string>
#include <vector>

#include <cxxopts.hpp>

#include "import/driver.hpp"
#include "project/project.hpp"

namespace kelvane {

inline void add_run_options(cxxopts::Options& options) {
  // clang-format off
  options.add_options()
    ("source_track", "source track", cxxopts::value<int>()->default_value("-1"))
    ("target_track", "target track", cxxopts::value<int>())
    ("seq_target_offset", "sequencer line offset in target project",
       cxxopts::value<int>()->default_value("-1"))
    ("project_src", "source project", cxxopts::value<std::string>())
    ("project_tgt", "target project", cxxopts::value<std::string>())
    ("p,pattern", "patterns to import", cxxopts::value<std::vector<std::string>>())
    ("whole_track", "import the entire track")
    ("h,help", "Print usage");
  // clang-format on
}

// The three records of a run.
struct RunProjects {
  Project* src;
  Project* tgt;
  Project* initial;
};

// Loads both projects and imports; the target is saved only when `save` is
// set. Returns the run's exit status.
inline int run_command_line(cxxopts::ParseResult const& result, RunProjects const& p, bool save) {
  ImportRequest request;
  request.seq_target_offset = result.count("seq_target_offset") ? result["seq_target_offset"].as<int>() : 0;
  request.source_track = result.count("source_track") ? result["source_track"].as<int>() : -1;
  request.target_track = result["target_track"].as<int>();
  std::printf("importing to track %d\n", request.target_track);

  std::string const project_src = result["project_src"].as<std::string>();
  std::string const project_tgt = result["project_tgt"].as<std::string>();

  std::printf("loading source project %s\n", project_src.c_str());
  project_load(p.src, project_src.c_str());
  // p.initial stays as it is: nothing of a run reads it, and initialising
  // would write every page of a record of tens of megabytes.
  std::printf("loading target project %s\n", project_tgt.c_str());
  project_load(p.tgt, project_tgt.c_str());

  request.whole_track = result.count("whole_track") != 0;
  request.patterns = [&result] { return result["pattern"].as<std::vector<std::string>>(); };
  if (int const status = run_import(p.tgt, p.src, request); status != 0) return status;

  if (save) project_save(p.tgt, project_tgt.c_str());
  return 0;
}

}  // namespace kelvane
