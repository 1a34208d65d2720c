#include "files/temporary.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "text/error.h"
#include "files/signals.h"
#include "text/printable.h"

namespace rast::tool {

namespace {

std::string temporaryFolder() {
  const char* folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

std::string pathOf(const Descriptor& file) { return join("/proc/self/fd/", file.number()); }

// Repeats a call with one name after the other while there is a file of that name. Names can be
// guessed, so files that exist are left alone.
template <class Call>
auto underFreeName(std::string_view folder, std::string& path, const Call& call) {
  for (unsigned number = 0;; ++number) {
    path = join(folder, ".rast-", getpid(), '-', number);
    auto result = call();
    if (result || errno != EEXIST) return result;
  }
}

}  // namespace

void failTemporary(const char* what, int error) {
  fail(ExitCode::runTime, temporaryFolder(), ": the temporary file cannot be ", what, ": ",
       std::strerror(error), "; TMPDIR can name another folder");
}

Descriptor createUnnamed(std::string_view folder) {
  Descriptor file(open(folder.empty() ? "." : std::string(folder).c_str(),
                       O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
  return access(pathOf(file).c_str(), F_OK) == 0 ? std::move(file) : Descriptor();
}

bool giveName(const Descriptor& unnamed, const std::string& path) {
  return linkat(AT_FDCWD, pathOf(unnamed).c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

Descriptor createTemporary(std::string_view folder, std::string& path) {
  return underFreeName(folder, path, [&path] {
    return Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  });
}

bool linkTemporary(const Descriptor& unnamed, std::string_view folder, std::string& path) {
  return underFreeName(folder, path, [&] { return giveName(unnamed, path); });
}

Descriptor openUnlinked() {
  const std::string folder = temporaryFolder() + '/';
  if (Descriptor file = createUnnamed(folder)) return file;
  std::string path;
  const FatalSignalsBlocked blocked;
  Descriptor file = createTemporary(folder, path);
  if (!file) failTemporary("created", errno);
  unlink(path.c_str());
  return file;
}

}  // namespace rast::tool
