// kelvane tracker patch importer: brings chosen patches and FX patches of
// one project, with everything they call, into another.

#include <cstdio>

int main() {
  std::fputs("error: project_patch is not built yet\n", stderr);
  return 1;
}
