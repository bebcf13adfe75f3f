#include <alg_kit/view/Door.h>

#include <charconv>
#include <cmath>
#include <random>

namespace view {
namespace {

using Place = Entrance::Place;

constexpr std::size_t kLongestTarget = 512;

Entrance refused(int status, std::string_view problem) {
  Entrance entrance;
  entrance.status = status;
  entrance.problem = problem;
  return entrance;
}

/// Takes as long for every wrong text of the right length.
bool same(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  return difference == 0;
}

std::string_view valueOf(std::string_view query, std::string_view key) {
  while (!query.empty()) {
    const std::size_t end = query.find('&');
    const std::string_view pair = query.substr(0, end);
    if (pair.size() > key.size() && pair.substr(0, key.size()) == key && pair[key.size()] == '=')
      return pair.substr(key.size() + 1);
    query = end == std::string_view::npos ? std::string_view() : query.substr(end + 1);
  }
  return {};
}

std::optional<double> numberOf(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !(std::abs(value) < 1e10))
    return std::nullopt;
  return value;
}

bool isAddress(std::string_view host) {
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    return host.substr(1, host.size() - 2).find_first_not_of("0123456789abcdefABCDEF:.") ==
           std::string_view::npos;
  return !host.empty() && host.find_first_not_of("0123456789.") == std::string_view::npos;
}

bool isOurHost(std::string_view host, const DoorRules& rules) {
  const std::string port = ":" + std::to_string(rules.port);
  if (host.size() <= port.size() || host.substr(host.size() - port.size()) != port) return false;
  host = host.substr(0, host.size() - port.size());
  if (host == "localhost") return true;
  const bool everyAddress = rules.address == "0.0.0.0" || rules.address == "::";
  return everyAddress ? isAddress(host)
                      : host == rules.address || host == "[" + rules.address + "]";
}

}  // namespace

Entrance judge(const Knock& knock, const DoorRules& rules) {
  if (knock.method != "GET") return refused(405, "only GET is answered");
  if (knock.target.size() > kLongestTarget) return refused(414, "the address is too long");
  if (!isOurHost(knock.host, rules)) return refused(403, "the Host is not this server");
  if (knock.hasOrigin && knock.origin != "http://" + std::string(knock.host))
    return refused(403, "the Origin is not this server");
  const std::size_t mark = knock.target.find('?');
  const std::string_view path = knock.target.substr(0, mark);
  const std::string_view query =
      mark == std::string_view::npos ? std::string_view() : knock.target.substr(mark + 1);
  if (!same(valueOf(query, "token"), rules.token))
    return refused(403,
                   "the token is missing or wrong: open the address that algtrack view printed");

  Entrance entrance;
  if (path == "/" && !knock.wantsWebSocket) {
    entrance.place = Place::kPage;
  } else if (path == "/live" && knock.wantsWebSocket) {
    entrance.place = Place::kLive;
  } else if (path == "/part.csv" || path == "/part.algrec") {
    const auto file = numberOf(valueOf(query, "file")), from = numberOf(valueOf(query, "from")),
               to = numberOf(valueOf(query, "to"));
    if (!file || !from || !to || *file < 0 || *file >= static_cast<double>(rules.files))
      return refused(400, "expected file, from and to as numbers");
    entrance.place = path == "/part.csv" ? Place::kCsv : Place::kRecording;
    entrance.file = static_cast<std::int64_t>(*file);
    entrance.from = *from;
    entrance.to = *to;
  } else {
    return refused(404, "there is nothing here");
  }
  return entrance;
}

std::string randomToken() {
  std::random_device random;
  std::string token;
  for (int i = 0; i < 32; ++i) token += "0123456789abcdef"[random() & 15u];
  return token;
}

}  // namespace view
