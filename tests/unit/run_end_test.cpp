// A run end with its message: who prints the message, and what a handler
// is handed.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "kelvane/run_end.hpp"

using namespace kelvane;

namespace {

struct Ended {
  RunEnd end;
  std::string message;
};

[[noreturn]] void throwing_handler(RunEnd const& end) { throw Ended{end, end.message ? end.message : ""}; }

// Runs `f` with the handler set in `mode`; returns what it was handed and
// what reached stderr.
template <class F>
std::pair<Ended, std::string> end_with(RunEndMessage mode, F f) {
  RunEndHandler const before = set_run_end_handler(throwing_handler, mode);
  testing::internal::CaptureStderr();
  Ended ended{};
  try {
    f();
  } catch (Ended const& e) {
    ended = e;
  }
  std::fflush(stderr);
  std::string const err = testing::internal::GetCapturedStderr();
  set_run_end_handler(before);
  return {ended, err};
}

TEST(RunEndTest, AnErrorWithoutHandlerPrintsItsMessageAndExitsWithStatus1) {
  EXPECT_EXIT(run_end_error("error: the target is full\n"), ::testing::ExitedWithCode(1),
              "^error: the target is full\n$");
}

TEST(RunEndTest, AHandlerThatLeavesTheMessagePrintedGetsItToo) {
  auto const [ended, err] = end_with(RunEndMessage::printed, [] { run_end_error("error: a cycle\n"); });
  EXPECT_EQ(err, "error: a cycle\n");
  EXPECT_EQ(ended.end.kind, RunEndKind::error);
  EXPECT_EQ(ended.message, "error: a cycle\n");
}

TEST(RunEndTest, AHandlerThatTellsTheMessageItselfHasStderrToItself) {
  auto const [ended, err] = end_with(RunEndMessage::to_handler, [] { run_end_error("error: a cycle\n"); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(ended.end.kind, RunEndKind::error);
  EXPECT_EQ(ended.message, "error: a cycle\n");
}

TEST(RunEndTest, AnAssertionIsPrintedOnlyWhenTheHandlerLeavesItPrinted) {
  auto const [printed, err_printed] =
      end_with(RunEndMessage::printed, [] { run_end_assertion("x < y", "include/kelvane/types", 7, "int f()"); });
  EXPECT_EQ(err_printed, "include/kelvane/types:7: int f(): Assertion `x < y' failed\n");
  EXPECT_EQ(printed.end.kind, RunEndKind::assertion);

  auto const [told, err_told] =
      end_with(RunEndMessage::to_handler, [] { run_end_c_assertion("i >= 0", "src/project_manager.cpp", 9, "g"); });
  EXPECT_EQ(err_told, "");
  EXPECT_EQ(told.end.kind, RunEndKind::assertion);
  EXPECT_STREQ(told.end.expr, "i >= 0");
  EXPECT_EQ(told.end.line, 9u);
}

TEST(RunEndTest, AHandlerSetWithoutAModeLeavesTheMessagePrinted) {
  RunEndHandler const before = set_run_end_handler(throwing_handler, RunEndMessage::to_handler);
  set_run_end_handler(throwing_handler);
  testing::internal::CaptureStderr();
  try {
    run_end_error("error: x\n");
  } catch (Ended const&) {
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: x\n");
  set_run_end_handler(before);
}

}  // namespace
