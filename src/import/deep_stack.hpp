#pragma once
// An import follows references depth first, and a chain of tables,
// programs and patterns may be as long as the project has slots. The stack
// of the main thread is sized when the process starts, so a process whose
// limit is smaller than such a chain could need starts itself again once,
// with the limit raised as far as the system allows.

namespace kelvane {

// Call first thing in main, with main's argv.
void ensure_deep_stack(char** argv);

}  // namespace kelvane
