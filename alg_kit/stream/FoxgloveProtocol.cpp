#include <alg_kit/stream/FoxgloveProtocol.h>

#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

namespace stream {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::string_view, 2> kSubProtocols = {"foxglove.sdk.v1",
                                                           "foxglove.websocket.v1"};
constexpr std::size_t kDeepest = 8;  // brackets in a client's message

enum class Level { kInfo, kWarning, kError };

std::string status(Level level, const std::string& message) {
  const Json json = {{"op", "status"}, {"level", static_cast<int>(level)}, {"message", message}};
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// Channels count from 1 for clients.
int channelIdOf(int index) {
  return index + 1;
}

std::optional<std::uint32_t> idIn(const Json& json) {
  if (!json.is_number_unsigned()) return std::nullopt;
  const auto value = json.get<std::uint64_t>();
  if (value > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

std::optional<std::uint32_t> idIn(const Json& json, const char* key) {
  const auto found = json.is_object() ? json.find(key) : json.end();
  return found == json.end() ? std::nullopt : idIn(*found);
}

}  // namespace

std::string FoxgloveProtocol::chooseSubProtocol(std::string_view offered) {
  while (!offered.empty()) {
    const std::size_t comma = std::min(offered.find(','), offered.size());
    std::string_view one = offered.substr(0, comma);
    while (!one.empty() && (one.front() == ' ' || one.front() == '\t')) one.remove_prefix(1);
    while (!one.empty() && (one.back() == ' ' || one.back() == '\t')) one.remove_suffix(1);
    if (std::find(kSubProtocols.begin(), kSubProtocols.end(), one) != kSubProtocols.end())
      return std::string(one);
    offered.remove_prefix(std::min(comma + 1, offered.size()));
  }
  return {};
}

std::vector<std::string> FoxgloveProtocol::greeting() {
  const Json info = {{"op", "serverInfo"},
                     {"name", "alg_factory"},
                     {"capabilities", Json::array()},
                     {"supportedEncodings", Json::array({"json"})},
                     {"metadata", {{"version", std::to_string(kVersion)}}}};
  Json channels = Json::array();
  for (int i = 0; i < kChannels; ++i) {
    const ChannelFacts& facts = factsOf(channelAt(i));
    channels.push_back({{"id", channelIdOf(i)},
                        {"topic", facts.topic},
                        {"encoding", "json"},
                        {"schemaName", facts.schemaName},
                        {"schema", facts.schema},
                        {"schemaEncoding", "jsonschema"}});
  }
  const Json advertise = {{"op", "advertise"}, {"channels", channels}};
  return {info.dump(), advertise.dump()};
}

std::array<char, 13> FoxgloveProtocol::headOf(std::uint32_t subscription, std::uint64_t timeNs) {
  std::array<char, 13> head{};
  head[0] = 1;
  for (std::size_t i = 0; i < 4; ++i) head[1 + i] = static_cast<char>(subscription >> 8 * i);
  for (std::size_t i = 0; i < 8; ++i) head[5 + i] = static_cast<char>(timeNs >> 8 * i);
  return head;
}

std::string FoxgloveProtocol::onText(std::string_view text) {
  if (text.size() > kLongestMessage || text::nestingOf(text) > kDeepest)
    return status(Level::kError, "expected a short message, found a long or deep one");
  const Json json = Json::parse(text, nullptr, false);
  const auto op = json.is_object() ? json.find("op") : json.end();
  if (op == json.end() || !op->is_string())
    return status(Level::kError, "expected a JSON object with `op`, found " + text::quoted(text));

  const std::string name = op->get<std::string>();
  std::string problem;
  if (name == "subscribe") {
    const auto list = json.find("subscriptions");
    if (list == json.end() || !list->is_array())
      return status(Level::kError, "subscribe: expected `subscriptions`, found none");
    for (const Json& item : *list) {
      const auto id = idIn(item, "id");
      const auto channel = idIn(item, "channelId");
      if (!id || !channel || *channel < 1 || *channel > std::uint32_t{kChannels}) {
        problem = "subscribe: expected `id` and the `channelId` of a channel, found others";
      } else if (channels_.count(*id) != 0) {
        problem = "subscribe: expected a new `id`, found " + std::to_string(*id) + " again";
      } else if (channels_.size() == kMostSubscriptions) {
        problem = "subscribe: expected at most " + std::to_string(kMostSubscriptions) +
                  " subscriptions, found more";
      } else {
        const Channel wanted = channelAt(static_cast<int>(*channel) - 1);
        channels_[*id] = wanted;
        byChannel_[static_cast<std::size_t>(wanted)].push_back(*id);
      }
    }
  } else if (name == "unsubscribe") {
    const auto list = json.find("subscriptionIds");
    if (list == json.end() || !list->is_array())
      return status(Level::kError, "unsubscribe: expected `subscriptionIds`, found none");
    for (const Json& item : *list) {
      const auto id = idIn(item);
      const auto found = id ? channels_.find(*id) : channels_.end();
      if (found == channels_.end()) {
        problem = "unsubscribe: expected the id of a subscription, found another";
        continue;
      }
      auto& ids = byChannel_[static_cast<std::size_t>(found->second)];
      ids.erase(std::find(ids.begin(), ids.end(), *id));
      channels_.erase(found);
    }
  } else {
    problem = "expected `subscribe` or `unsubscribe`, found " + text::quoted(name);
  }
  return problem.empty() ? std::string() : status(Level::kWarning, problem);
}

}  // namespace stream
