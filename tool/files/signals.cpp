#include "files/signals.h"

#include <cerrno>

namespace rast::tool {

FatalSignalsBlocked::FatalSignalsBlocked() {
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int number : kFatalSignals) sigaddset(&blocked, number);
  pthread_sigmask(SIG_BLOCK, &blocked, &before_);
}

FatalSignalsBlocked::~FatalSignalsBlocked() {
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  errno = error;
}

}  // namespace rast::tool
