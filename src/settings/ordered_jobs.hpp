#pragma once
// Jobs that share two cores but look as if they ran one after the other.
//
// A load reads thousands of slot files, each into its own slot. Two threads
// read them at once; what the user sees stays that of one thread reading
// them in order:
// - a job's messages (message_write and its kin) go out at once while every
//   job before it is done; else they are kept with the job and go out when
//   that comes true;
// - a run end in a job (an assertion, an error) prints nothing where it
//   happens; the jobs before it finish, their messages and those of the job
//   itself up to the run end are printed, and the run end is raised then,
//   on the calling thread. Jobs after it are not started, and what they
//   printed is dropped: the process ends there;
// - work that must not run ahead of its turn (opening a pipe or a device,
//   which may block, and whose lines go to whoever reads first) waits for
//   it with wait_for_turn.
// While a run end handler is set (a program that keeps going after a run
// end, and may look at the records it leaves), the jobs run one after the
// other on the calling thread, as any other code does.

#include <cstddef>
#include <cstdio>
#include <exception>
#include <string>
#include <type_traits>
#include <vector>

#include "kelvane/run_end.hpp"
#include "settings/text_io.hpp"

namespace kelvane {

// Messages of the code that jobs run: straight to the stream, or kept with
// the job in progress.
void message_write(FILE* stream, char const* text, size_t size);
void message_puts(FILE* stream, char const* text);  // as fputs
void message_printf(FILE* stream, char const* format, ...) __attribute__((format(printf, 2, 3)));

// Inside a job: returns once every job before it is done. If one of them
// ended the run, the job ends here instead (by an exception that the run
// catches), and nothing of it counts. Outside a job it returns at once.
void wait_for_turn();

// Runs job(context, i) for every i from 0 to count - 1, as said above.
void run_ordered_jobs(int count, void (*job)(void* context, int index), void* context);

template <class F>
void run_ordered_jobs(int count, F&& job) {
  run_ordered_jobs(
      count, [](void* context, int index) { (*static_cast<std::remove_reference_t<F>*>(context))(index); },
      &job);
}

// A stretch of messages to one stream, kept for later with the job or the
// file that printed it.
struct KeptMessage {
  FILE* stream;
  std::string text;
};

// A file's text, made ahead of its turn: what the making wrote, the
// messages it printed and, if a run end cut it short, that run end.
struct MadeAhead {
  TextOut out;
  std::vector<KeptMessage> messages;
  bool cut = false;
  DeferredRunEnd end{};
  std::exception_ptr exception;
};

// Prints what the making printed and raises the run end that cut it short,
// if any: the writer calls it at the point where the making would have run
// (once the file is open).
void release_made_ahead(MadeAhead& made);

// Files made ahead, written in order: make(context, i, out) puts the text
// of file i into `out`, and may run ahead of its turn, on this thread or a
// helper; write(context, i, made) writes file i, here, for i rising from
// 0, and returns false to stop (nothing after it is made or written).
// `made` is null where the text was not made ahead (no helper, a run end
// handler set, or after a run end): write then makes it itself, in turn.
// A making must only read what the writes leave alone.
void run_made_ahead(int count, void (*make)(void* context, int index, TextOut& out),
                    bool (*write)(void* context, int index, MadeAhead* made), void* context);

template <class Make, class Write>
void run_made_ahead(int count, Make&& make, Write&& write) {
  struct Both {
    std::remove_reference_t<Make>* make;
    std::remove_reference_t<Write>* write;
  } both{&make, &write};
  run_made_ahead(
      count, [](void* c, int i, TextOut& out) { (*static_cast<Both*>(c)->make)(i, out); },
      [](void* c, int i, MadeAhead* made) -> bool { return (*static_cast<Both*>(c)->write)(i, made); }, &both);
}

// For tests: whether the jobs of run_ordered_jobs and run_made_ahead may go to a helper thread
// (true by default). Off, they run in order on the calling thread.
void set_ordered_jobs_parallel(bool parallel);

}  // namespace kelvane
