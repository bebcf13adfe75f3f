#pragma once

#include <string>
#include <vector>

namespace algtrack {

/// Files, and folders around them, that must not outlive the program as they are. Whoever made them
/// removes them; what ends the program at once, without anybody to do so, removes them too.
class Unfinished {
 public:
  Unfinished() = default;
  ~Unfinished() { finish(); }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;

  /// @param path  of what this program has made, and nobody else; a folder before what is in it
  void add(const std::string& path);

  /// From here on nobody removes any of them but who made them.
  void finish() noexcept;

 private:
  std::vector<struct UnfinishedPath*> paths_;  ///< kept until the program ends
};

/// Removes what is unfinished. For a signal's handler, on any thread.
void removeUnfinished() noexcept;

}  // namespace algtrack
