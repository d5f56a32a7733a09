// The initial state of a project: what every file leaves out keeps.

#include <cstdio>

#include "project/project.hpp"

namespace kelvane {

namespace {
constexpr char kBuildStamp[] = "Mon Sep 29 23:24:55 PDT 2025";
}

void project_initialize(Project* project) {
  // Everything behind the stamp is zero, then the stamp with its NUL fill.
  std::memset(reinterpret_cast<char*>(project) + sizeof project->build_stamp, 0,
              sizeof(Project) - sizeof project->build_stamp);
  std::memset(project->build_stamp, 0, sizeof project->build_stamp);
  std::memcpy(project->build_stamp, kBuildStamp, sizeof kBuildStamp - 1);

  for (Pattern& pattern : project->patterns) pattern.type = PatternType::from_index(0);

  project->allocated_patterns = 0;
  project->allocated_tables = 0;
  project->allocated_programs = 0;

  for (int t = 0; t < kNumTracks; ++t) project->track_settings[t].type = PatternType::from_index(0);
}

}  // namespace kelvane
