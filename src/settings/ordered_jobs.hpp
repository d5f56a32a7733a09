#pragma once
// Jobs that share two cores but look as if they ran one after the other.
//
// A load reads thousands of slot files, each into its own slot. Two threads
// read them at once; what the user sees stays that of one thread reading
// them in order:
// - a job's messages (message_write and its kin) are kept with the job, and
//   printed in job order once the jobs are done;
// - a run end in a job (an assertion, an error) prints nothing where it
//   happens; the jobs before it finish, their messages and those of the job
//   itself up to the run end are printed, and the run end is raised then,
//   on the calling thread. Jobs after it are not started, and what they
//   printed is dropped: the process ends there.
// While a run end handler is set (a program that keeps going after a run
// end, and may look at the records it leaves), the jobs run one after the
// other on the calling thread, as any other code does.

#include <cstddef>
#include <cstdio>
#include <type_traits>

namespace kelvane {

// Messages of the code that jobs run: straight to the stream, or kept with
// the job in progress.
void message_write(FILE* stream, char const* text, size_t size);
void message_puts(FILE* stream, char const* text);  // as fputs
void message_printf(FILE* stream, char const* format, ...) __attribute__((format(printf, 2, 3)));

// Runs job(context, i) for every i from 0 to count - 1, as said above.
void run_ordered_jobs(int count, void (*job)(void* context, int index), void* context);

template <class F>
void run_ordered_jobs(int count, F&& job) {
  run_ordered_jobs(
      count, [](void* context, int index) { (*static_cast<std::remove_reference_t<F>*>(context))(index); },
      &job);
}

// For tests: whether the jobs of run_ordered_jobs may go to a helper thread
// (true by default). Off, they run in order on the calling thread.
void set_ordered_jobs_parallel(bool parallel);

}  // namespace kelvane
