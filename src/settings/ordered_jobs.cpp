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

// One stretch of a job's messages to one stream.
struct KeptMessage {
  int job;
  FILE* stream;
  std::string text;
};

// What one thread did of a run of jobs.
struct ThreadShare {
  std::vector<KeptMessage> messages;  // in job order: a thread takes jobs in rising order
  int end_job = INT_MAX;              // the job that ended the run, if any
  bool deferred_end = false;          // a run end, kept in `end`
  DeferredRunEnd end{};
  std::exception_ptr exception;  // else anything else the job threw
};

// The job whose messages this thread keeps, if any.
thread_local ThreadShare* keeping = nullptr;
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
  keeping = &share;
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

}  // namespace

void message_write(FILE* stream, char const* text, size_t size) {
  if (!keeping) {
    std::fwrite(text, 1, size, stream);
    return;
  }
  std::vector<KeptMessage>& kept = keeping->messages;
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
