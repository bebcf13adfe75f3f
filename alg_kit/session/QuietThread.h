#pragma once

#include <thread>
#include <utility>

#if defined(__unix__) || defined(__APPLE__)
#include <pthread.h>

#include <csignal>
#endif

namespace session {

/// Starts a thread that takes none of the process's signals: the host's handlers run on the host's
/// threads, and a limit on the size of files is an error of one write instead of the host's end.
template <typename Action>
std::thread quietThread(Action action) {
#if defined(__unix__) || defined(__APPLE__)
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread thread(std::move(action));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
  } catch (...) {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
#else
  return std::thread(std::move(action));
#endif
}

}  // namespace session
