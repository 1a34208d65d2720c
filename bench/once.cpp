// Runs one operation once, between two marks, so that it can be followed by instruction:
// `rast_once OPERATION LEVEL WIDTH HEIGHT`, where the level may be "definition". Without arguments
// prints the operations.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/levels.h"
#include "workloads.h"

extern "C" {
[[gnu::noipa]] void markBegin() {}
[[gnu::noipa]] void markEnd() {}
}

int main(int argc, char** argv) {
  using namespace rast::bench;
  if (argc != 5) {
    for (const Workload& workload : workloads()) puts(workload.name);
    return argc == 1 ? 0 : 2;
  }
  const Size size{"once", atoi(argv[3]), atoi(argv[4]), 1};
  const rast::Rows* rows = nullptr;
  bool known = strcmp(argv[2], "definition") == 0;
  for (const rast::test::Level& level : rast::test::levels()) {
    if (level.name != argv[2]) continue;
    rows = level.rows;
    known = true;
  }
  for (const Workload& workload : workloads()) {
    if (!known || strcmp(workload.name, argv[1]) != 0) continue;
    Planes planes(size);
    markBegin();
    workload.run(rows, planes);
    markEnd();
    return 0;
  }
  fprintf(stderr, "rast_once: no operation '%s' at level '%s'\n", argv[1], argv[2]);
  return 2;
}
