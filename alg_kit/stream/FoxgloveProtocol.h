#pragma once

#include <alg_kit/stream/JsonMessages.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace stream {

/// One client's side of the Foxglove WebSocket protocol, without the socket: what it subscribed to,
/// and what it is told. Bears any bytes.
class FoxgloveProtocol {
 public:
  static constexpr std::size_t kLongestMessage = 64 * 1024;  ///< bytes that a client may send
  static constexpr std::size_t kMostSubscriptions = 64;

  /// Of those that a client offers (separated by commas), the one that is spoken; empty = none.
  static std::string chooseSubProtocol(std::string_view offered);

  /// The messages with which a server begins: who it is, and its channels.
  static std::vector<std::string> greeting();

  /// The 13 bytes before a message's payload.
  static std::array<char, 13> headOf(std::uint32_t subscription, std::uint64_t timeNs);

  /// A text from the client.
  /// @return what to answer: a status where something is not as it should be, else nothing
  std::string onText(std::string_view text);

  /// Of a channel; empty if the client did not ask for it.
  const std::vector<std::uint32_t>& subscriptions(Channel channel) const {
    return byChannel_[static_cast<std::size_t>(channel)];
  }

 private:
  std::map<std::uint32_t, Channel> channels_;  ///< by subscription
  std::array<std::vector<std::uint32_t>, kChannels> byChannel_;
};

}  // namespace stream
