#include "commands/listing.h"

#include "formats/output.h"

std::string headline(const Operation& operation) {
  return join(operation.name, ": ", operation.summary, ", for ", takenPages(operation));
}

ExitCode listOperations(const Job& job) {
  if (job.json) {
    print(rast::chain::describeOperations() + '\n');
    return ExitCode::done;
  }
  std::string text;
  for (const Operation& operation : operations()) text += headline(operation) + '\n';
  print(text);
  return ExitCode::done;
}
