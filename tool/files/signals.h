// The signals that end the command, and how they are kept waiting.
#pragma once

#include <csignal>

namespace rast::tool {

inline constexpr int kFatalSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGXCPU};

// Keeps them from coming between a file and what removes it; in this thread and those it starts.
class FatalSignalsBlocked {
 public:
  FatalSignalsBlocked();
  ~FatalSignalsBlocked();
  FatalSignalsBlocked(const FatalSignalsBlocked&) = delete;
  FatalSignalsBlocked& operator=(const FatalSignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace rast::tool
