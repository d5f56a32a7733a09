#include "settings/ordered_jobs.hpp"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "kelvane/run_end.hpp"

namespace kelvane {

namespace {

// What one thread did of a run of jobs.
struct ThreadShare {
  std::vector<KeptMessage> messages;  // in job order: a thread takes jobs in rising order
  int end_job = INT_MAX;              // the job that ended the run, if any
  bool deferred_end = false;          // a run end, kept in `end`
  DeferredRunEnd end{};
  std::exception_ptr exception;  // else anything else the job threw
};

// Where this thread keeps its messages, and for which job, if it does.
thread_local std::vector<KeptMessage>* keeping = nullptr;
thread_local int keeping_job = 0;

bool parallel_allowed = true;

// Jobs are handed out a few at a time: most are a file or two.
constexpr int kJobsPerTake = 8;

struct Run {
  int count;
  void (*job)(void*, int);
  void* context;
  std::atomic<int> next{0};
  std::atomic<int> stop{INT_MAX};  // no job from here on is started
};

void lower_to(std::atomic<int>& value, int to) {
  int now = value.load();
  while (to < now && !value.compare_exchange_weak(now, to)) {
  }
}

void take_jobs(Run& run, ThreadShare& share) {
  keeping = &share.messages;
  set_run_end_deferred(true);
  for (;;) {
    int const first = run.next.fetch_add(kJobsPerTake);
    if (first >= run.count) break;
    int const last = std::min(run.count, first + kJobsPerTake);
    bool ended = false;
    for (int i = first; i < last && !ended; ++i) {
      if (i >= run.stop.load()) {
        ended = true;
        break;
      }
      keeping_job = i;
      try {
        run.job(run.context, i);
      } catch (DeferredRunEnd const& end) {
        share.deferred_end = true;
        share.end = end;
        share.end_job = i;
      } catch (...) {
        share.exception = std::current_exception();
        share.end_job = i;
      }
      if (share.end_job == i) {
        lower_to(run.stop, i);
        ended = true;
      }
    }
    if (ended) break;
  }
  set_run_end_deferred(false);
  keeping = nullptr;
}

// Prints the kept messages of both threads up to and including job `last`,
// in job order.
void print_kept(ThreadShare const& a, ThreadShare const& b, int last) {
  size_t i = 0, j = 0;
  for (;;) {
    bool const more_a = i < a.messages.size() && a.messages[i].job <= last;
    bool const more_b = j < b.messages.size() && b.messages[j].job <= last;
    if (!more_a && !more_b) return;
    bool const take_a = more_a && (!more_b || a.messages[i].job <= b.messages[j].job);
    KeptMessage const& m = take_a ? a.messages[i++] : b.messages[j++];
    std::fwrite(m.text.data(), 1, m.text.size(), m.stream);
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
  keeping_job = i;
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
  if (count < 2 || keeping || writing_run || !parallel_allowed || !run_end_ends_process()) {
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
  if (!keeping) {
    std::fwrite(text, 1, size, stream);
    return;
  }
  std::vector<KeptMessage>& kept = *keeping;
  if (kept.empty() || kept.back().job != keeping_job || kept.back().stream != stream)
    kept.push_back({keeping_job, stream, {}});
  kept.back().text.append(text, size);
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

void run_ordered_jobs(int count, void (*job)(void*, int), void* context) {
  // Jobs started from inside a job, or with a handler set, run here in turn.
  if (count < 2 || keeping || !parallel_allowed || !run_end_ends_process()) {
    for (int i = 0; i < count; ++i) job(context, i);
    return;
  }
  Run run{count, job, context};
  ThreadShare mine, helpers;
  std::thread helper;
  try {
    helper = std::thread([&run, &helpers] { take_jobs(run, helpers); });
  } catch (...) {
    // No thread to be had: this thread does them all.
  }
  take_jobs(run, mine);
  if (helper.joinable()) helper.join();

  int const end_job = std::min(mine.end_job, helpers.end_job);
  print_kept(mine, helpers, end_job);
  if (end_job == INT_MAX) return;
  ThreadShare const& ended = mine.end_job == end_job ? mine : helpers;
  if (ended.deferred_end) raise_run_end(ended.end);
  std::rethrow_exception(ended.exception);
}

}  // namespace kelvane
