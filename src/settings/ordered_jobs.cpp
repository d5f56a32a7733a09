#include "settings/ordered_jobs.hpp"

#include <algorithm>
#include <atomic>
#include <climits>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kelvane/run_end.hpp"

namespace kelvane {

namespace {

// Where this thread keeps the messages of a making ahead, if it does.
thread_local std::vector<KeptMessage>* keeping = nullptr;
// The job this thread is doing in an ordered run.
thread_local int keeping_job = 0;

bool parallel_allowed = true;

// Jobs are handed out a few at a time: most are a file or two. No job
// starts more than kJobsAhead beyond the first one not yet done, so that
// kept messages never pile up.
constexpr int kJobsPerTake = 8;
constexpr int kJobsAhead = 64;

// Thrown out of a job that waits for its turn when a job before it ended
// the run: nothing of it counts.
struct JobAbandoned {};

struct JobState {
  bool done = false;
  std::vector<KeptMessage> messages;
};

// A run of ordered jobs. Everything below the mutex is guarded by it.
struct Run {
  int count;
  void (*job)(void*, int);
  void* context;
  std::atomic<int> next{0};  // the next job to take

  std::mutex mutex;
  std::condition_variable moved;  // `printed` moved on, or the run ended
  std::vector<JobState> jobs;
  int printed = 0;        // every job before it is done and its messages printed
  int end_job = INT_MAX;  // the first job that ended the run, if any
  bool deferred_end = false;
  DeferredRunEnd end{};
  std::exception_ptr exception;

  Run(int n, void (*j)(void*, int), void* c) : count(n), job(j), context(c), jobs(size_t(n)) {}
};

// The run whose job this thread is doing, if any.
thread_local Run* job_run = nullptr;

void keep_message(std::vector<KeptMessage>& kept, FILE* stream, char const* text, size_t size) {
  if (kept.empty() || kept.back().stream != stream) kept.push_back({stream, {}});
  kept.back().text.append(text, size);
}

void print_messages(std::vector<KeptMessage>& messages) {
  for (KeptMessage const& m : messages) std::fwrite(m.text.data(), 1, m.text.size(), m.stream);
  std::vector<KeptMessage>().swap(messages);
}

// With the mutex held: prints the messages of the jobs that are done and
// whose turn has come, up to the one that ended the run.
void print_done_jobs(Run& run) {
  while (run.printed < run.count && run.printed <= run.end_job && run.jobs[size_t(run.printed)].done) {
    print_messages(run.jobs[size_t(run.printed)].messages);
    ++run.printed;
  }
  run.moved.notify_all();
}

// Does job i; false if it ended the run.
bool do_job(Run& run, int i) {
  keeping_job = i;
  bool ended = false;
  DeferredRunEnd end{};
  std::exception_ptr exception;
  try {
    run.job(run.context, i);
  } catch (DeferredRunEnd const& e) {
    ended = true;
    end = e;
  } catch (JobAbandoned const&) {
    // A job before it ended the run.
  } catch (...) {
    ended = true;
    exception = std::current_exception();
  }
  std::lock_guard<std::mutex> const lock(run.mutex);
  run.jobs[size_t(i)].done = true;
  if (ended && i < run.end_job) {
    run.end_job = i;
    run.deferred_end = !exception;
    run.end = end;
    run.exception = exception;
  }
  print_done_jobs(run);
  return !ended;
}

void take_jobs(Run& run) {
  job_run = &run;
  set_run_end_deferred(true);
  bool going = true;
  while (going) {
    int const first = run.next.fetch_add(kJobsPerTake);
    if (first >= run.count) break;
    int const last = std::min(run.count, first + kJobsPerTake);
    for (int i = first; i < last && going; ++i) {
      {
        std::unique_lock<std::mutex> lock(run.mutex);
        run.moved.wait(lock, [&] { return i < run.printed + kJobsAhead || run.end_job < i; });
        if (run.end_job < i) {
          going = false;
          break;
        }
      }
      going = do_job(run, i);
    }
  }
  set_run_end_deferred(false);
  job_run = nullptr;
}

// A job's message: printed at once if the job's turn has come, else kept
// with the job.
void job_message(Run& run, FILE* stream, char const* text, size_t size) {
  std::lock_guard<std::mutex> const lock(run.mutex);
  JobState& job = run.jobs[size_t(keeping_job)];
  if (keeping_job == run.printed && keeping_job < run.end_job) {
    print_messages(job.messages);
    std::fwrite(text, 1, size, stream);
    return;
  }
  keep_message(job.messages, stream, text, size);
}

void lower_to(std::atomic<int>& value, int to) {
  int now = value.load();
  while (to < now && !value.compare_exchange_weak(now, to)) {
  }
}

// A run of files made ahead. The helper takes files in rising order,
// at most kMadeAheadWindow beyond the last one written, so that made texts
// never pile up.
constexpr int kMadeAheadWindow = 256;
constexpr int kNotMade = 0, kMade = 1;

struct AheadSlot {
  MadeAhead made;
  std::atomic<int> state{kNotMade};
};

struct AheadRun {
  int count;
  void (*make)(void*, int, TextOut&);
  void* context;
  std::vector<AheadSlot> slots;
  std::atomic<int> next{0};        // the next file to take
  std::atomic<int> written{0};     // files written so far
  std::atomic<int> stop{INT_MAX};  // no file from here on is taken
  std::thread helper;

  AheadRun(int n, void (*m)(void*, int, TextOut&), void* c) : count(n), make(m), context(c), slots(size_t(n)) {}
  ~AheadRun() { end_helper(); }

  // Nothing more is taken; the helper finishes what it holds and ends.
  void end_helper() {
    lower_to(stop, 0);
    written.fetch_add(1);
    written.notify_all();
    if (helper.joinable()) helper.join();
  }
};

// The run whose writer works on this thread: a run end released from a
// made text first ends the helper, which must not outlive the process's
// last steps.
thread_local AheadRun* writing_run = nullptr;

// Takes the next file to make; -1 if there is none to take, or none within
// the window and `may_wait` is not set.
int take_ahead(AheadRun& run, bool may_wait) {
  for (;;) {
    int n = run.next.load();
    if (n >= run.count || n >= run.stop.load()) return -1;
    int const w = run.written.load();
    if (n >= w + kMadeAheadWindow) {
      if (!may_wait) return -1;
      run.written.wait(w);
      continue;
    }
    if (run.next.compare_exchange_weak(n, n + 1)) return n;
  }
}

void make_ahead(AheadRun& run, int i) {
  AheadSlot& slot = run.slots[size_t(i)];
  MadeAhead& made = slot.made;
  keeping = &made.messages;
  set_run_end_deferred(true);
  try {
    run.make(run.context, i, made.out);
  } catch (DeferredRunEnd const& end) {
    made.cut = true;
    made.end = end;
  } catch (...) {
    made.cut = true;
    made.exception = std::current_exception();
  }
  set_run_end_deferred(false);
  keeping = nullptr;
  // What comes after a run end is not made ahead: the run may end there.
  if (made.cut) lower_to(run.stop, i + 1);
  slot.state.store(kMade);
  slot.state.notify_all();
}

// File i, made: by this thread if nobody has taken it, else by the helper,
// while this thread makes later ones or waits. Null if it is not to be
// made ahead.
MadeAhead* wait_made(AheadRun& run, int i) {
  AheadSlot& slot = run.slots[size_t(i)];
  for (;;) {
    if (slot.state.load() == kMade) return &slot.made;
    if (run.next.load() <= i) {
      // Nobody has taken it: every file before it is written.
      if (i >= run.stop.load()) return nullptr;
      int expected = i;
      if (run.next.compare_exchange_strong(expected, i + 1)) make_ahead(run, i);
      continue;
    }
    int const j = take_ahead(run, false);
    if (j >= 0) {
      make_ahead(run, j);
      continue;
    }
    slot.state.wait(kNotMade);
  }
}

}  // namespace

void release_made_ahead(MadeAhead& made) {
  if (made.cut && writing_run) writing_run->end_helper();
  for (KeptMessage const& m : made.messages) message_write(m.stream, m.text.data(), m.text.size());
  if (!made.cut) return;
  if (!made.exception) raise_run_end(made.end);
  std::rethrow_exception(made.exception);
}

void run_made_ahead(int count, void (*make)(void*, int, TextOut&), bool (*write)(void*, int, MadeAhead*),
                    void* context) {
  if (count < 2 || keeping || job_run || writing_run || !parallel_allowed || !run_end_ends_process()) {
    for (int i = 0; i < count; ++i)
      if (!write(context, i, nullptr)) return;
    return;
  }
  AheadRun run(count, make, context);
  try {
    run.helper = std::thread([&run] {
      for (int i = take_ahead(run, true); i >= 0; i = take_ahead(run, true)) make_ahead(run, i);
    });
  } catch (...) {
    // No thread to be had: this thread makes each file as it comes.
  }
  struct Writing {
    AheadRun* before;
    explicit Writing(AheadRun* run) : before(writing_run) { writing_run = run; }
    ~Writing() { writing_run = before; }
  } const writing(&run);
  for (int i = 0; i < count; ++i) {
    MadeAhead* const made = wait_made(run, i);
    // A file not made ahead is made by the writer, with nobody else at work.
    if (!made) run.end_helper();
    if (!write(context, i, made)) return;
    // A written text is not needed again. (Assigning an empty string would
    // keep its buffer.)
    if (made) {
      std::string().swap(made->out.text);
      std::vector<KeptMessage>().swap(made->messages);
    }
    run.written.store(i + 1);
    run.written.notify_all();
  }
}

void message_write(FILE* stream, char const* text, size_t size) {
  if (job_run) {
    job_message(*job_run, stream, text, size);
    return;
  }
  if (keeping)
    keep_message(*keeping, stream, text, size);
  else
    std::fwrite(text, 1, size, stream);
}

void message_puts(FILE* stream, char const* text) { message_write(stream, text, std::strlen(text)); }

void message_printf(FILE* stream, char const* format, ...) {
  char small[256];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  int const n = std::vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (n < 0) {
    va_end(again);
    return;
  }
  if (size_t(n) < sizeof small) {
    va_end(again);
    message_write(stream, small, size_t(n));
    return;
  }
  std::string large(size_t(n) + 1, '\0');
  std::vsnprintf(large.data(), large.size(), format, again);
  va_end(again);
  message_write(stream, large.data(), size_t(n));
}

void set_ordered_jobs_parallel(bool parallel) { parallel_allowed = parallel; }

void wait_for_turn() {
  Run* const run = job_run;
  if (!run) return;
  int const i = keeping_job;
  std::unique_lock<std::mutex> lock(run->mutex);
  run->moved.wait(lock, [&] { return run->printed >= i || run->end_job < i; });
  if (run->end_job < i) throw JobAbandoned{};
  // The job's turn has come: what it printed so far goes out before it
  // goes on, as it would have.
  print_messages(run->jobs[size_t(i)].messages);
}

void run_ordered_jobs(int count, void (*job)(void*, int), void* context) {
  // Jobs started from inside a job, or with a handler set, run here in turn.
  if (count < 2 || job_run || keeping || !parallel_allowed || !run_end_ends_process()) {
    for (int i = 0; i < count; ++i) job(context, i);
    return;
  }
  Run run(count, job, context);
  std::thread helper;
  try {
    helper = std::thread([&run] { take_jobs(run); });
  } catch (...) {
    // No thread to be had: this thread does them all.
  }
  take_jobs(run);
  if (helper.joinable()) helper.join();
  // Every job up to the one that ended the run is done, and its messages
  // are out.
  if (run.end_job == INT_MAX) return;
  if (run.deferred_end) raise_run_end(run.end);
  std::rethrow_exception(run.exception);
}

}  // namespace kelvane
