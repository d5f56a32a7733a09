#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kelvane/run_end.hpp"
#include "kelvane/types_cells.hpp"

extern "C" [[noreturn]] void __assert_fail(char const* expr, char const* file, unsigned line,
                                           char const* function) noexcept;

namespace kelvane {

namespace {

RunEndHandler handler = nullptr;
RunEndMessage handler_message = RunEndMessage::printed;
ProcessEndHook process_end_hook = nullptr;

void before_process_end(bool exiting) {
  if (process_end_hook) process_end_hook(exiting);
}

// True when the run end's own message goes to stderr.
bool prints_message() { return !handler || handler_message == RunEndMessage::printed; }

[[noreturn]] void hand_over(RunEnd const& end) {
  handler(end);
  // A handler that returns has nowhere to go back to.
  std::abort();
}

}  // namespace

void set_process_end_hook(ProcessEndHook hook) { process_end_hook = hook; }

RunEndHandler set_run_end_handler(RunEndHandler h, RunEndMessage message) {
  RunEndHandler const before = handler;
  handler = h;
  handler_message = message;
  return before;
}

void run_end_assertion(char const* expr, char const* file, unsigned line, char const* function) {
  // What the run printed so far reaches its stream first: the progress
  // lines tell which request failed.
  std::fflush(stdout);
  if (prints_message()) std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed\n", file, line, function, expr);
  if (handler) hand_over({RunEndKind::assertion, expr, file, line, function, ""});
  before_process_end(false);
  std::abort();
}

void run_end_c_assertion(char const* expr, char const* file, unsigned line, char const* function) {
  std::fflush(stdout);
  if (!handler) {
    before_process_end(false);
    __assert_fail(expr, file, line, function);
  }
  if (prints_message())
    std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name, file, line,
                 function, expr);
  hand_over({RunEndKind::assertion, expr, file, line, function, ""});
}

void run_end_error() {
  std::fflush(stdout);
  if (handler) hand_over({RunEndKind::error, "", "", 0, "", ""});
  before_process_end(true);
  std::exit(1);
}

void run_end_error(char const* message) {
  std::fflush(stdout);
  if (prints_message()) std::fputs(message, stderr);
  if (handler) hand_over({RunEndKind::error, "", "", 0, "", message});
  before_process_end(true);
  std::exit(1);
}

}  // namespace kelvane

void kelvane_assert_fail(char const* expr, char const* file, unsigned line, char const* function) {
  kelvane::run_end_assertion(expr, file, line, function);
}
