#include "import/deep_stack.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

namespace kelvane {

namespace {

constexpr rlim_t kImportStack = rlim_t(512) << 20;

}  // namespace

void ensure_deep_stack(char** argv) {
  static char const kMarker[] = "KELVANE_PROJECT_MANAGER_STACK";
  if (std::getenv(kMarker)) return;
  rlimit limit;
  if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= kImportStack)
    return;
  rlim_t const wanted = limit.rlim_max == RLIM_INFINITY || limit.rlim_max > kImportStack ? kImportStack : limit.rlim_max;
  if (wanted <= limit.rlim_cur) return;
  limit.rlim_cur = wanted;
  if (setrlimit(RLIMIT_STACK, &limit) != 0) return;
  // The binary's own path, so that the process keeps its name.
  char self[4096];
  ssize_t const n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return;
  self[n] = 0;
  setenv(kMarker, "1", 1);
  execv(self, argv);
  // Could not start again: go on with the stack there is.
}

}  // namespace kelvane
