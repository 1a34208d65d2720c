// The signals that end the command, and how they are kept waiting.
#ifndef RAST_TOOL_SIGNALS_H
#define RAST_TOOL_SIGNALS_H

#include <csignal>

inline constexpr int fatalSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGXCPU};

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

#endif
