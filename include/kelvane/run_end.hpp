#pragma once
// How a run ends before its work is done: a failed check (an assertion) or
// an error that has been reported (status 1, nothing saved). By default the
// process ends there, as a run of the tool must. A program that carries out
// runs inside one process (a fuzz harness, a preview) sets a handler that
// leaves the run by throwing, and keeps going.

namespace kelvane {

enum class RunEndKind : char { assertion, error };

struct RunEnd {
  RunEndKind kind;
  // For an assertion: the check's text, the unit and line it names and the
  // function it names. Empty for an error.
  char const* expr;
  char const* file;
  unsigned line;
  char const* function;
  // For an error: its message as the tool prints it, "error: ...\n";
  // empty when it was printed before the run end was called.
  char const* message;
};

// Must not return. It is called after the run end's message is on stderr,
// or, for a handler set with RunEndMessage::to_handler, instead of it.
using RunEndHandler = void (*)(RunEnd const&);

// Who tells a run end while a handler is set: the run end itself, on
// stderr, as the tool does; or the handler, in its own words (a program
// that turns every end into one line of its own).
enum class RunEndMessage : char { printed, to_handler };

// Sets the handler (nullptr: end the process) and returns the one before.
RunEndHandler set_run_end_handler(RunEndHandler handler, RunEndMessage message = RunEndMessage::printed);

// The assertion of the library's own checks, in the form
// "FILE:LINE: FUNCTION: Assertion `EXPR' failed".
[[noreturn]] void run_end_assertion(char const* expr, char const* file, unsigned line, char const* function);

// The assertion of the C library's assert: its message carries the
// program's name, and the process ends the way a failed assert ends it.
[[noreturn]] void run_end_c_assertion(char const* expr, char const* file, unsigned line, char const* function);

// After an error message: status 1.
[[noreturn]] void run_end_error();

// An error with its message: prints it on stderr (unless the handler tells
// it), then status 1.
[[noreturn]] void run_end_error(char const* message);

// Called just before a run end ends the process (not when a handler takes
// over): `exiting` for an error's exit, false for an assertion's abort.
// The files a save holds open are left as stdio would leave them.
using ProcessEndHook = void (*)(bool exiting);
void set_process_end_hook(ProcessEndHook hook);

}  // namespace kelvane
