#include "formats/temporary.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "formats/error.h"
#include "formats/signals.h"
#include "text/printable.h"

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

Descriptor createTemporary(std::string_view folder, std::string& path) {
  // A name that is there already is passed over, so names may be foreseen.
  for (unsigned number = 0;; ++number) {
    path = join(folder, ".rast-", getpid(), '-', number);
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file || errno != EEXIST) return file;
  }
}

Descriptor openUnlinked() {
  std::string path;
  const FatalSignalsBlocked blocked;
  Descriptor file = createTemporary(temporaryFolder() + '/', path);
  if (!file) failTemporary("created", errno);
  unlink(path.c_str());
  return file;
}
