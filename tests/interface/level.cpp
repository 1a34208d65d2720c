// Prints the level that the library chose at load time, and fails if it is not the highest of those
// that this machine runs.
#include <cstdio>
#include <string>

#include "support/levels.h"

int main() {
  std::string chosen = "none";
  std::string highest = "none";
  for (const rast::test::Level& level : rast::test::levels()) {
    if (level.rows == rast::rows()) chosen = level.name;
    highest = level.name;
  }
  std::puts(chosen.c_str());
  return chosen == highest ? 0 : 1;
}
