#pragma once

#include <alg_kit/view/Watcher.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace view {

using Watchers = std::vector<std::unique_ptr<Watcher>>;

constexpr std::size_t kMostFiles = 2;
constexpr std::int64_t kMostFrames = 400;  ///< in one answer
constexpr std::int64_t kMostColumns = 2000;

/// Answers the page's questions about recordings. docs/viewer.md lists them.
class WindowAnswers {
 public:
  explicit WindowAnswers(const Watchers& watchers) : watchers_(watchers) {}

  /// @param question  anything; what is no question is answered with {"error": ...}
  /// @return JSON text, UTF-8, at most a few MB
  std::string answer(std::string_view question) const;

  /// For a page that stays at the live edge: the frames from `from` on of a file, at most
  /// kMostFrames of the latest, and the state of all files.
  std::string news(std::size_t file, std::int64_t from) const;

 private:
  const Watchers& watchers_;
};

}  // namespace view
