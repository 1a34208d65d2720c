#include "formats/temporary.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "formats/error.h"
#include "formats/signals.h"

namespace {

std::string temporaryFolder() {
  const char* folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

}  // namespace

void failTemporary(const char* what, int error) {
  fail(ExitCode::runTime, temporaryFolder(), ": the temporary file cannot be ", what, ": ",
       std::strerror(error), "; TMPDIR can name another folder");
}

Descriptor openUnlinked() {
  std::string path = temporaryFolder() + "/rast-XXXXXX";
  const FatalSignalsBlocked blocked;
  Descriptor file(mkostemp(path.data(), O_CLOEXEC));
  if (!file) failTemporary("created", errno);
  unlink(path.c_str());
  return file;
}
