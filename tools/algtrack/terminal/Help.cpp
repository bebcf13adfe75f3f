#include <tools/algtrack/terminal/Help.h>

#include <algorithm>
#include <sstream>
#include <string>

namespace algtrack {
namespace {

constexpr std::size_t kColumns = 100;
constexpr std::size_t kLeftColumn = 30;

/// `left`, then `text` broken into lines beside it, or below where it has no room.
std::string twoColumns(const std::string& left, const std::string& text) {
  std::string result, line = "  " + left;
  const auto breakLine = [&] {
    result += line.erase(line.find_last_not_of(' ') + 1) + "\n";
    line.assign(kLeftColumn, ' ');
  };
  if (line.size() + 2 > kLeftColumn && !text.empty())
    breakLine();
  else
    line.resize(std::max(line.size(), kLeftColumn), ' ');
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (line.size() > kLeftColumn && line.size() + 1 + word.size() > kColumns) breakLine();
    line += (line.size() > kLeftColumn ? " " : "") + word;
  }
  breakLine();
  return result;
}

bool takesSeveral(const CLI::Option* option) {
  return option->get_items_expected_max() > 1;
}

/// The parser's word for a value, and behind a colon what our validators say of it.
std::string valueOf(const CLI::Option* option) {
  if (option->get_items_expected_max() == 0) return "";
  const std::string type = option->get_type_name();
  const std::string word = type.substr(0, type.find(':'));
  return word == "TEXT" ? " TEXT" : " N";
}

/// "0 to 100; default 0"
std::string limitsOf(const CLI::Option* option) {
  std::string limits;
  const auto add = [&](const std::string& limit) {
    limits += (limits.empty() ? "" : "; ") + limit;
  };
  if (option->get_required()) add("required");
  if (option->get_items_expected_max() == 0) return limits;
  const std::string type = option->get_type_name();
  const std::size_t colon = type.find(':');
  if (colon != std::string::npos && colon + 1 < type.size()) add(type.substr(colon + 1));
  if (!option->get_default_str().empty()) add("default " + option->get_default_str());
  for (const CLI::Option* needed : option->get_needs()) add("with " + needed->get_name());
  for (const CLI::Option* excluded : option->get_excludes())
    add("not with " + excluded->get_name());
  return limits;
}

}  // namespace

std::string Help::make_subcommand(const CLI::App* command) const {
  const std::string description = command->get_description();
  return twoColumns(command->get_name(), description.substr(0, description.find("\n\n")));
}

std::string Help::make_option(const CLI::Option* option, bool isPositional) const {
  const std::string name = make_option_name(option, isPositional);
  const std::string limits = limitsOf(option);
  return twoColumns(name + (isPositional ? "" : valueOf(option)),
                    option->get_description() + (limits.empty() ? "" : " [" + limits + "]"));
}

std::string Help::make_option_usage(const CLI::Option* option) const {
  const std::string name = option->get_name(true) + (takesSeveral(option) ? "..." : "");
  return option->get_required() ? name : "[" + name + "]";
}

}  // namespace algtrack
