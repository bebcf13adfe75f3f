// Who may ask the server for what. No socket is needed to say so.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace view {

/// A request as far as the rules need it.
struct Knock {
  std::string_view method, target, host, origin;
  bool hasOrigin = false;
  bool wantsWebSocket = false;
};

struct Entrance {
  enum class Place { kRefused, kPage, kLive, kCsv, kRecording };
  Place place = Place::kRefused;
  int status = 404;          ///< of HTTP, of what is refused
  std::string_view problem;  ///< one line, for what is refused
  std::int64_t file = 0;     ///< of what is downloaded
  double from = 0, to = 0;   ///< seconds
};

struct DoorRules {
  std::string address;  ///< that the server listens on: "127.0.0.1"
  std::uint16_t port = 0;
  std::string token;
  std::int64_t files = 1;
};

/// The rules: GET only; the Host names an address of this machine by its digits (or localhost), so
/// that no foreign name can be made to point here; an Origin, which browsers send for pages, is
/// this server's own; the token is in the address.
Entrance judge(const Knock& knock, const DoorRules& rules);

/// 128 random bits in hexadecimal digits.
std::string randomToken();

}  // namespace view
