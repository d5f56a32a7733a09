#include "settings/ordered_jobs.hpp"

#include <gmock/gmock.h>
#include <poll.h>
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

// An unbuffered stream into a pipe, and what reaches the pipe's other end
// within a few seconds: to see whether a message is out while its job runs.
struct PipeStream {
  int fds[2] = {-1, -1};
  FILE* out = nullptr;
  PipeStream() {
    if (pipe(fds) != 0) return;
    out = fdopen(fds[1], "w");
    if (out) std::setvbuf(out, nullptr, _IONBF, 0);
  }
  ~PipeStream() {
    if (out) std::fclose(out);
    if (fds[0] >= 0) close(fds[0]);
  }
  std::string arrived(size_t size) const {
    char text[16] = {};
    pollfd ready{fds[0], POLLIN, 0};
    if (size > sizeof text || poll(&ready, 1, 5000) != 1) return "";
    ssize_t const n = read(fds[0], text, size);
    return n > 0 ? std::string(text, size_t(n)) : "";
  }
};

TEST(OrderedJobs, WaitForTurnWaitsForEveryJobBefore) {
  std::vector<std::atomic<bool>> done(200);
  std::atomic<bool> all_before{false};
  run_ordered_jobs(200, [&](int job) {
    // Job 0 is slow: the other thread reaches job 40 long before it ends.
    if (job == 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (job == 40) {
      wait_for_turn();
      bool all = true;
      for (int i = 0; i < 40; ++i) all = all && done[i];
      all_before = all;
    }
    done[job] = true;
  });
  EXPECT_TRUE(all_before);
}

TEST(OrderedJobs, WhatAJobPrintedBeforeItsTurnIsOutOnceItHasWaitedForIt) {
  PipeStream pipe_stream;
  ASSERT_NE(pipe_stream.out, nullptr);
  std::string seen_in_job;
  run_ordered_jobs(100, [&](int job) {
    if (job == 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (job != 40) return;
    // Printed while job 0 still runs: kept. Once job 40 has waited for its
    // turn, it is out.
    message_puts(pipe_stream.out, "forty");
    wait_for_turn();
    seen_in_job = pipe_stream.arrived(5);
  });
  EXPECT_EQ(seen_in_job, "forty");
}

TEST(OrderedJobs, WaitForTurnOutsideAJobReturnsAtOnce) {
  wait_for_turn();
  SUCCEED();
}

TEST(OrderedJobsDeathTest, AJobWaitingBehindARunEndGoesNoFurther) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto run = [] {
    alarm(20);  // a job that does not stop would hang the run
    run_ordered_jobs(200, [](int job) {
      if (job == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        message_puts(stderr, "zero\n");
        run_end_error();
      }
      if (job == 40) {
        wait_for_turn();
        std::fputs("forty went on\n", stderr);
      }
    });
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(1), testing::Eq("zero\n"));
}

TEST(OrderedJobs, AJobInTurnPrintsAtOnce) {
  PipeStream pipe_stream;
  ASSERT_NE(pipe_stream.out, nullptr);
  std::string seen_in_job;
  run_ordered_jobs(100, [&](int job) {
    if (job != 0) return;
    // Job 0 is in turn from the start: its message is out before it ends.
    message_puts(pipe_stream.out, "zero");
    seen_in_job = pipe_stream.arrived(4);
  });
  EXPECT_EQ(seen_in_job, "zero");
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

namespace kelvane {
namespace {

// Made ahead: file i's text is "text i;", and the writer keeps what it gets.
struct AheadLog {
  std::vector<std::string> written;  // the text each write got
  std::vector<bool> ahead;           // whether it came made ahead
};

void make_text(int i, TextOut& out) {
  busy(i);
  out.str("text ");
  out.decimal(i);
  out.put(';');
}

bool write_text(AheadLog& log, int i, MadeAhead* made) {
  TextOut out;
  if (made) {
    out = made->out;
    release_made_ahead(*made);
  } else {
    make_text(i, out);
  }
  EXPECT_EQ(int(log.written.size()), i);
  log.written.push_back(out.text);
  log.ahead.push_back(made != nullptr);
  return true;
}

std::string text_of(int i) { return "text " + std::to_string(i) + ";"; }

TEST(MadeAhead, FilesAreWrittenInOrderWithTheirTexts) {
  AheadLog log;
  std::mutex mutex;
  std::set<std::thread::id> makers;
  // The making of file 0 waits until a later one has started: the other
  // thread must have started it.
  std::atomic<bool> later_started{false};
  run_made_ahead(
      kJobs,
      [&](int i, TextOut& out) {
        if (i >= 100) later_started = true;
        for (int wait = 0; i == 0 && !later_started && wait < 10000; ++wait)
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        make_text(i, out);
        std::lock_guard<std::mutex> const lock(mutex);
        makers.insert(std::this_thread::get_id());
      },
      [&](int i, MadeAhead* made) { return write_text(log, i, made); });
  ASSERT_EQ(log.written.size(), size_t(kJobs));
  for (int i = 0; i < kJobs; ++i) {
    EXPECT_EQ(log.written[i], text_of(i));
    EXPECT_TRUE(log.ahead[i]) << i;
  }
  EXPECT_EQ(makers.size(), 2u);
}

TEST(MadeAhead, AFalseWriteStopsTheRun) {
  AheadLog log;
  std::atomic<int> made_past{0};
  run_made_ahead(
      kJobs,
      [&](int i, TextOut& out) {
        if (i > 1000 + 256 + 2) ++made_past;
        make_text(i, out);
      },
      [&](int i, MadeAhead* made) { return write_text(log, i, made) && i < 1000; });
  EXPECT_EQ(log.written.size(), 1001u);
  // Nothing is made beyond the window ahead of the last file written.
  EXPECT_EQ(made_past.load(), 0);
}

TEST(MadeAhead, MessagesOfAMakingComeWhenItIsReleased) {
  testing::internal::CaptureStderr();
  run_made_ahead(
      20,
      [](int i, TextOut& out) {
        message_printf(stderr, "made %d\n", i);
        make_text(i, out);
      },
      [](int i, MadeAhead* made) {
        message_printf(stderr, "open %d\n", i);
        if (made) release_made_ahead(*made);
        else message_printf(stderr, "made %d\n", i);
        return true;
      });
  std::string expected;
  for (int i = 0; i < 20; ++i) expected += "open " + std::to_string(i) + "\nmade " + std::to_string(i) + "\n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
}

// File `at` ends its making with an assertion after a message.
void make_or_end(int i, TextOut& out, int at) {
  make_text(i, out);
  if (i != at) return;
  message_puts(stderr, "last words\n");
  run_end_assertion("x < y", "include/kelvane/somewhere", 77, "int f()");
}

TEST(MadeAheadDeathTest, AnAssertionInAMakingComesWhenItsFileIsWritten) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto run = [](int at) {
    run_made_ahead(
        kJobs, [at](int i, TextOut& out) { make_or_end(i, out, at); },
        [](int i, MadeAhead* made) {
          message_printf(stderr, "w%d ", i);
          if (made) release_made_ahead(*made);
          return true;
        });
  };
  for (int at : {0, 700, kJobs - 1}) {
    std::string expected;
    for (int i = 0; i <= at; ++i) expected += "w" + std::to_string(i) + " ";
    expected += "last words\ninclude/kelvane/somewhere:77: int f(): Assertion `x < y' failed\n";
    EXPECT_EXIT(run(at), testing::KilledBySignal(SIGABRT), testing::Eq(expected)) << at;
  }
}

TEST(MadeAhead, AfterAnUnreleasedEndTheRestIsMadeInTurn) {
  // The writer of file 700 does not open it, so its making's end never
  // happens: the files behind it are still written, made in turn.
  AheadLog log;
  run_made_ahead(
      kJobs, [](int i, TextOut& out) { make_or_end(i, out, 700); },
      [&](int i, MadeAhead* made) {
        if (i == 700) {
          log.written.push_back("not opened");
          log.ahead.push_back(made != nullptr);
          return true;
        }
        return write_text(log, i, made);
      });
  ASSERT_EQ(log.written.size(), size_t(kJobs));
  for (int i = 0; i < kJobs; ++i) EXPECT_EQ(log.written[i], i == 700 ? "not opened" : text_of(i)) << i;
  EXPECT_TRUE(log.ahead[700]);
  EXPECT_FALSE(log.ahead[kJobs - 1]);
}

TEST(MadeAhead, AnExceptionInAMakingIsRethrownWhenReleased) {
  AheadLog log;
  EXPECT_THROW(run_made_ahead(
                   kJobs,
                   [](int i, TextOut& out) {
                     make_text(i, out);
                     if (i == 900) throw std::runtime_error("900");
                   },
                   [&](int i, MadeAhead* made) { return write_text(log, i, made); }),
               std::runtime_error);
  EXPECT_EQ(log.written.size(), 900u);
}

TEST(MadeAhead, WithAHandlerEachFileIsMadeByItsWriterInTurn) {
  RunEndHandler const before = set_run_end_handler(throwing_handler);
  AheadLog log;
  int makes = 0;
  run_made_ahead(
      100,
      [&](int i, TextOut& out) {
        ++makes;
        make_text(i, out);
      },
      [&](int i, MadeAhead* made) { return write_text(log, i, made); });
  set_run_end_handler(before);
  EXPECT_EQ(makes, 0);
  ASSERT_EQ(log.written.size(), 100u);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(log.written[i], text_of(i));
    EXPECT_FALSE(log.ahead[i]);
  }
}

}  // namespace
}  // namespace kelvane
