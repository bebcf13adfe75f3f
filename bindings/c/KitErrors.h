// What the kit throws, as failures.
#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/text/TextFile.h>
#include <bindings/c/Guard.h>

#include <utility>

namespace c_interface {

/// As `guarded`, for functions that open files: what is wrong with one is ALG_FILE.
template <typename Action>
alg_status guardedWithFiles(Action action) noexcept {
  return guarded([&] {
    try {
      return action();
    } catch (const recording::RecordingError& error) {
      throw Failure(ALG_FILE, error.what());
    } catch (const text::FileError& error) {
      throw Failure(ALG_FILE, error.what());
    }
  });
}

}  // namespace c_interface
