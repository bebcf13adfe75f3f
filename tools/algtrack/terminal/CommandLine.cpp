#include <tools/algtrack/terminal/CommandLine.h>

#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <numeric>
#include <stdexcept>

namespace algtrack {
namespace {

using Names = std::vector<std::string>;

class UsageError : public std::runtime_error {
 public:
  UsageError(const std::string& problem, const CLI::App& command)
      : std::runtime_error(problem + " (see " + pathOf(command) + " --help)") {}

 private:
  static std::string pathOf(const CLI::App& command) {
    const CLI::App* const parent = command.get_parent();
    return (parent == nullptr ? "" : pathOf(*parent) + " ") + command.get_name();
  }
};

std::size_t lettersThatDiffer(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::string joined(const Names& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string orNearest(const std::string& name, const Names& names) {
  const std::string nearest = nearestOf(name, names);
  return nearest.empty() ? "" : ": did you mean " + nearest + "?";
}

Names commandsOf(const CLI::App& app) {
  Names names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

Names optionsOf(const CLI::App& command) {
  Names names;
  for (const CLI::Option* option : command.get_options())
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return names;
}

bool takesValue(const CLI::Option& option) {
  return option.get_items_expected_min() > 0;
}

bool mayTakeNumber(const CLI::Option& option) {
  return option.get_items_expected_min() == 0 && option.get_items_expected_max() > 0;
}

bool isWholeNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

/// Goes through the arguments as the parser will, for what the parser would say worse or not at
/// all.
class Arguments {
 public:
  Arguments(CLI::App& app, const Names& given) : command_(&app), given_(given) {}

  /// @return the arguments for the parser
  Names check() {
    while (at_ < given_.size() && given_[at_] != "--") {
      const std::string argument = given_[at_++];
      if (argument.size() > 1 && argument[0] == '-')
        checkOption(argument);
      else
        checkWord(argument);
    }
    checked_.insert(checked_.end(), given_.begin() + static_cast<std::ptrdiff_t>(at_),
                    given_.end());
    return checked_;
  }

  const CLI::App& command() const { return *command_; }

 private:
  void checkWord(const std::string& word) {
    checked_.push_back(word);
    const Names commands = commandsOf(*command_);
    if (commands.empty()) {  // an argument of the command
      if (word.empty())
        throw UsageError("expected the name of a file, found an empty one", *command_);
      return;
    }
    if (std::find(commands.begin(), commands.end(), word) != commands.end()) {
      command_ = command_->get_subcommand(word);
      return;
    }
    std::error_code error;
    if (std::filesystem::exists(word, error))
      throw UsageError("expected a command, found the file " + text::quoted(word) +
                           ": the command comes first (" + joined(commands) + ")",
                       *command_);
    const std::string hint = orNearest(word, commands);
    throw UsageError("expected a command, found " + text::quoted(word) +
                         (hint.empty() ? ": they are " + joined(commands) : hint),
                     *command_);
  }

  CLI::Option* find(const std::string& name) const { return command_->get_option_no_throw(name); }

  void checkOption(const std::string& argument) {
    const bool isLong = argument[1] == '-';
    const std::size_t equals = isLong ? argument.find('=') : std::string::npos;
    const std::string name = isLong ? argument.substr(0, equals) : argument.substr(0, 2);
    const CLI::Option* const option = find(name);
    if (option == nullptr)
      throw UsageError(
          "unknown option " + text::quoted(name) + orNearest(name, optionsOf(*command_)),
          *command_);
    checked_.push_back(argument);
    const bool hasValue = isLong ? equals != std::string::npos : argument.size() > 2;
    if (takesValue(*option)) checkValue(name, argument, hasValue);
    // A word behind --explain may be the file as well as its number.
    if (mayTakeNumber(*option) && !hasValue) {
      const bool number = at_ < given_.size() && isWholeNumber(given_[at_]);
      checked_.back() += "=" + (number ? given_[at_++] : "true");
    }
  }

  void checkValue(const std::string& name, const std::string& argument, bool hasValue) {
    if (hasValue) {
      if (argument.back() == '=' && argument.size() == name.size() + 1)
        throw UsageError(name + ": expected a value, found none", *command_);
      return;
    }
    if (at_ == given_.size()) throw UsageError(name + ": expected a value, found none", *command_);
    const std::string value = given_[at_++];
    if (value.size() > 1 && value[0] == '-' && find(value) != nullptr)
      throw UsageError(name + ": expected a value, found the option " + value, *command_);
    if (value.empty()) throw UsageError(name + ": expected a value, found an empty one", *command_);
    checked_.push_back(value);
  }

  CLI::App* command_;
  const Names& given_;
  std::size_t at_ = 0;
  Names checked_;
};

std::string nameOf(const CLI::Option& option) {
  return option.nonpositional() ? option.get_name() : option.get_name(true);
}

std::string inLower(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

/// What the parser did not like about options that are each known and well formed.
std::string problemOf(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options()) {
    if (option->count() == 0) continue;
    for (const CLI::Option* needed : option->get_needs())
      if (needed->count() == 0)
        return nameOf(*option) + ": expected " + nameOf(*needed) + " with it, found none";
    for (const CLI::Option* excluded : option->get_excludes())
      if (excluded->count() > 0)
        return nameOf(*option) + ": expected without " + nameOf(*excluded) + ", found both";
    const auto most = static_cast<std::size_t>(std::max(option->get_items_expected_max(), 1));
    const auto least = static_cast<std::size_t>(std::max(option->get_items_expected_min(), 0));
    const std::string found = ", found " + std::to_string(option->count());
    if (option->count() > most && most == 1)
      return nameOf(*option) + ": expected once" + found + " times";
    if (option->count() > most || option->count() < least)
      return nameOf(*option) + ": expected " +
             (least == most             ? ""
              : option->count() < least ? "at least "
                                        : "at most ") +
             std::to_string(option->count() < least ? least : most) + found;
  }
  for (const CLI::Option* option : command.get_options())
    if (option->get_required() && option->count() == 0)
      return "expected " + nameOf(*option) + " (" + inLower(option->get_description()) +
             "), found none";
  const Names extras = command.remaining(true);
  if (!extras.empty()) return "expected no more arguments, found " + text::quoted(extras.front());
  const Names commands = commandsOf(command);
  if (!commands.empty()) return "expected a command, found none: they are " + joined(commands);
  return "";
}

}  // namespace

std::string nearestOf(const std::string& name, const Names& names) {
  std::string nearest;
  std::size_t least = std::max<std::size_t>(2, name.size() / 3) + 1;
  for (const std::string& known : names) {
    // The beginning of a name is a good guess at it.
    const bool begins = name.size() > 2 && known.compare(0, name.size(), name) == 0;
    const std::size_t differ = begins ? 1 : lettersThatDiffer(name.substr(0, 100), known);
    if (differ >= least) continue;
    least = differ;
    nearest = known;
  }
  return nearest;
}

void runCommandLine(CLI::App& app, Names given) {
  if (!given.empty() && given.front() == "help") {  // "help COMMAND" is "COMMAND --help"
    given.erase(given.begin());
    given.push_back("--help");
  }
  Arguments arguments(app, given);
  Names checked = arguments.check();
  std::reverse(checked.begin(), checked.end());  // the parser takes them from the back
  try {
    app.parse(std::move(checked));
  } catch (const CLI::Success& help) {
    app.exit(help);
  } catch (const CLI::ValidationError& error) {  // in the words of our validators
    throw UsageError(error.what(), arguments.command());
  } catch (const CLI::ParseError& error) {
    const std::string problem = problemOf(arguments.command());
    throw UsageError(problem.empty() ? error.what() : problem, arguments.command());
  }
}

}  // namespace algtrack
