#pragma once

#include <alg_kit/session/Session.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace recording {

/// Remembers the latest calls that set the library up. A recording that goes on in another file
/// begins there with them, so that the file can be replayed and inspected by itself.
class SetUpCalls {
 public:
  void remember(const session::Unit& unit);

  /// In their order, numbered so that they end just before call `next`, at the moment `startNs`.
  std::vector<session::Entry> before(std::int64_t next, std::int64_t startNs) const;

 private:
  std::array<std::optional<session::Call>, 4> calls_;  ///< both sinks, Init, SetFilterMode
};

}  // namespace recording
