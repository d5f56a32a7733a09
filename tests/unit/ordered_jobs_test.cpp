#include "settings/ordered_jobs.hpp"

#include <gmock/gmock.h>
#include <unistd.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kelvane/run_end.hpp"

namespace kelvane {
namespace {

constexpr int kJobs = 3000;

// A little work per job, so that the helper thread gets its share.
void busy(int job) {
  volatile unsigned x = unsigned(job);
  for (int i = 0; i < 2000; ++i) x = x * 33 + 7;
}

// Job i prints "out i" to stdout and, for every third, "err i" to stderr.
void print_job(int job) {
  busy(job);
  message_printf(stdout, "out %d\n", job);
  if (job % 3 == 0) message_printf(stderr, "err %d\n", job);
}

std::string expected_lines(char const* stream_word, int step, int below) {
  std::string text;
  for (int i = 0; i < below; i += step) text += std::string(stream_word) + " " + std::to_string(i) + "\n";
  return text;
}

TEST(OrderedJobs, MessagesComeInJobOrderFromBothThreads) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  // Job 0 waits until a job of a later take has started: the thread that
  // holds job 0 cannot start that one itself, so both threads work.
  std::atomic<bool> later_started{false};
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  run_ordered_jobs(kJobs, [&](int job) {
    if (job >= 100) later_started = true;
    for (int wait = 0; job == 0 && !later_started && wait < 10000; ++wait)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    print_job(job);
    std::lock_guard<std::mutex> const lock(mutex);
    threads.insert(std::this_thread::get_id());
  });
  std::fflush(stdout);
  std::string const out = testing::internal::GetCapturedStdout();
  std::string const err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out, expected_lines("out", 1, kJobs));
  EXPECT_EQ(err, expected_lines("err", 3, kJobs));
  // The order is not simply that of one thread: two did the work.
  EXPECT_EQ(threads.size(), 2u);
}

TEST(OrderedJobs, EveryJobRunsOnce) {
  std::vector<std::atomic<int>> runs(kJobs);
  run_ordered_jobs(kJobs, [&](int job) {
    busy(job);
    ++runs[job];
  });
  for (int i = 0; i < kJobs; ++i) ASSERT_EQ(runs[i].load(), 1) << i;
}

TEST(OrderedJobs, MessagesOutsideJobsGoStraightOut) {
  testing::internal::CaptureStderr();
  message_puts(stderr, "plain ");
  message_printf(stderr, "%s %d\n", "number", 42);
  std::string const long_text(1000, 'x');
  message_printf(stderr, "%s\n", long_text.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "plain number 42\n" + long_text + "\n");
}

// The run end of job `at`, after a message; every job prints first.
void ending_job(int job, int at, RunEndWay way) {
  print_job(job);
  if (job != at) return;
  message_puts(stderr, "last words\n");
  if (way == RunEndWay::assertion) run_end_assertion("x < y", "include/kelvane/somewhere", 77, "int f()");
  run_end_error();
}

void run_ending_jobs(int at, RunEndWay way) {
  run_ordered_jobs(kJobs, [&](int job) { ending_job(job, at, way); });
  std::fputs("not reached\n", stderr);
}

std::string expected_before_end(int at) {
  std::string text;
  for (int i = 0; i <= at; ++i)
    if (i % 3 == 0) text += "err " + std::to_string(i) + "\n";
  return text + "last words\n";
}

TEST(OrderedJobsDeathTest, AssertionComesAfterTheMessagesOfTheJobsBeforeIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int at : {0, 1500, kJobs - 1}) {
    std::string const expected =
        expected_before_end(at) + "include/kelvane/somewhere:77: int f(): Assertion `x < y' failed\n";
    EXPECT_EXIT(run_ending_jobs(at, RunEndWay::assertion), testing::KilledBySignal(SIGABRT), testing::Eq(expected))
        << at;
  }
}

TEST(OrderedJobsDeathTest, ErrorExitsAfterTheMessagesOfTheJobsBeforeIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int at : {0, 1501, kJobs - 1})
    EXPECT_EXIT(run_ending_jobs(at, RunEndWay::error), testing::ExitedWithCode(1),
                testing::Eq(expected_before_end(at)))
        << at;
}

TEST(OrderedJobsDeathTest, StdoutOfTheJobsBeforeAnErrorIsWritten) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // stdout goes to stderr's file, so that the death test sees both in the
  // order they reached it: stdout is flushed as the run ends.
  auto run = [] {
    std::fflush(stdout);
    dup2(2, 1);
    std::setvbuf(stdout, nullptr, _IOFBF, 1 << 20);
    run_ordered_jobs(10, [](int job) {
      message_printf(stdout, "o%d ", job);
      if (job == 6) run_end_error();
    });
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(1), testing::Eq("o0 o1 o2 o3 o4 o5 o6 "));
}

TEST(OrderedJobs, AnExceptionIsRethrownInTurn) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(run_ordered_jobs(kJobs,
                                [](int job) {
                                  print_job(job);
                                  if (job == 2000) throw std::runtime_error("job 2000");
                                }),
               std::runtime_error);
  std::string const err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, expected_lines("err", 3, 2001));
}

[[noreturn]] void throwing_handler(RunEnd const&) { throw std::logic_error("run ended"); }

TEST(OrderedJobs, WithAHandlerTheJobsRunInOrderOnTheCallingThread) {
  RunEndHandler const before = set_run_end_handler(throwing_handler);
  std::vector<int> order;
  std::set<std::thread::id> threads;
  testing::internal::CaptureStderr();
  EXPECT_THROW(run_ordered_jobs(kJobs,
                                [&](int job) {
                                  order.push_back(job);
                                  threads.insert(std::this_thread::get_id());
                                  message_printf(stderr, "%d;", job);
                                  if (job == 100) run_end_error();
                                }),
               std::logic_error);
  std::string const err = testing::internal::GetCapturedStderr();
  set_run_end_handler(before);
  ASSERT_EQ(order.size(), 101u);
  for (int i = 0; i <= 100; ++i) EXPECT_EQ(order[i], i);
  EXPECT_EQ(threads, std::set<std::thread::id>{std::this_thread::get_id()});
  std::string expected;
  for (int i = 0; i <= 100; ++i) expected += std::to_string(i) + ";";
  EXPECT_EQ(err, expected);
}

TEST(OrderedJobs, OffTheJobsRunInOrderOnTheCallingThread) {
  set_ordered_jobs_parallel(false);
  std::thread::id const caller = std::this_thread::get_id();
  std::vector<int> order;
  run_ordered_jobs(kJobs, [&](int job) {
    busy(job);
    EXPECT_EQ(std::this_thread::get_id(), caller);
    order.push_back(job);
  });
  set_ordered_jobs_parallel(true);
  ASSERT_EQ(order.size(), size_t(kJobs));
  for (int i = 0; i < kJobs; ++i) ASSERT_EQ(order[i], i);
}

}  // namespace
}  // namespace kelvane
