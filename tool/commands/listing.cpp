#include "commands/listing.h"

#include "files/output.h"

namespace rast::tool {

std::string headline(const chain::Operation& operation) {
  return join(operation.name, ": ", operation.summary, ", for ", chain::takenPages(operation));
}

ExitCode listOperations(const Job& job) {
  if (job.json) {
    print(chain::describeOperations() + '\n');
    return ExitCode::done;
  }
  std::string text;
  for (const chain::Operation& operation : chain::operations()) text += headline(operation) + '\n';
  print(text);
  return ExitCode::done;
}

}  // namespace rast::tool
