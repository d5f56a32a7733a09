// kelvane tracker project manager: copies patterns of one track of a source
// project, with everything they refer to, into a track of a target project.
//
// This unit holds main and the three project records; the driver and the
// import engine are in src/import.

#include <cstdio>

#include <cxxopts.hpp>

#include "import/command_line.hpp"
#include "import/deep_stack.hpp"
#include "project/project.hpp"

using namespace kelvane;

// The three records of a run, in zero-initialised static storage: far too
// large for a stack, and never on the heap.
Project prj_src;
Project prj_tgt;
Project prj_default;

int main(int argc, char** argv) {
  ensure_deep_stack(argv);
  cxxopts::Options options(argv[0], "kelvane tracker project manager");
  add_run_options(options);

  cxxopts::ParseResult const result = options.parse(argc, argv);

  if (result.count("help")) {
    std::fprintf(stderr, "%s\n", options.help().c_str());
    return 1;
  }

  return run_command_line(result, {&prj_src, &prj_tgt, &prj_default}, true);
}
