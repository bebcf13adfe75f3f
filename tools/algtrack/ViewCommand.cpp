#include <alg_kit/bodies/BodyFile.h>
#include <alg_kit/recording/FollowingReader.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/view/Server.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/Interrupt.h>
#include <tools/algtrack/terminal/Options.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace algtrack {
namespace {

struct ViewOptions {
  std::vector<std::string> files, bodies;
  view::ServerOptions server;
  bool follow = false;
  bool noBrowser = false;
};

/// The browser is nobody's child and says nothing here. Where there is none, the address is printed
/// anyway.
void openBrowser(const std::string& address) {
  std::signal(SIGCHLD, SIG_IGN);
  if (fork() != 0) return;
  setsid();
  const int nothing = open("/dev/null", O_RDWR);
  for (const int stream : {0, 1, 2}) dup2(nothing, stream);
  execlp("xdg-open", "xdg-open", address.c_str(), static_cast<char*>(nullptr));
  _exit(1);
}

void checkToken(const std::string& token) {
  constexpr std::size_t kShortest = 16, kLongest = 128;
  const bool plain = token.find_first_not_of(
                         "0123456789abcdefghijklmnopqrstuvwxyz"
                         "ABCDEFGHIJKLMNOPQRSTUVWXYZ-_") == std::string::npos;
  if (token.empty() || (plain && token.size() >= kShortest && token.size() <= kLongest)) return;
  throw std::runtime_error("--token: expected 16 to 128 letters, digits, - or _, found others");
}

/// What is to be said of a recording that was not there when the command began.
class LateNotes {
 public:
  explicit LateNotes(const view::Watcher& watcher) : watcher_(watcher) {}

  void look() {
    const view::Watcher::Status status = watcher_.status();
    if (status.state == view::Watcher::State::kAbsent) return;
    journal_.look(status.path, status.metadata);
    if (unitNoted_ || !status.calibration) return;
    calibration::LoadedCalibration loaded;
    loaded.calibration = *status.calibration;
    noteUnit(loaded, status.path);
    unitNoted_ = true;
  }

 private:
  const view::Watcher& watcher_;
  LateJournalNote journal_;
  bool unitNoted_ = false;
};

void viewFiles(const ViewOptions& options) {
  const InterruptsNoted interrupts;
  if (options.files.size() > view::kMostFiles)
    throw std::runtime_error("expected one recording, or two to compare, found " +
                             std::to_string(options.files.size()));
  checkToken(options.server.token);
  if (view::viewerPage().empty())
    throw std::runtime_error(
        "this build carries no viewer page (npm could not provide it when the program was built)");
  std::vector<bodies::Body> bodies;
  for (const std::string& file : options.bodies)
    bodies.push_back(bodies::readBody(file, bodies::Pairs::kTaken));
  view::Watchers watchers;
  std::vector<LateNotes> late;
  for (const std::string& file : options.files) {
    // What cannot be read is said here, and not in a page.
    const bool awaited = options.follow && !recording::isThere(file);
    if (!awaited) noteDoubts(recording::RecordingReader(file));
    watchers.push_back(std::make_unique<view::Watcher>(file, bodies));
    if (awaited) late.emplace_back(*watchers.back());
  }
  view::Server server(watchers, options.server);
  std::cout << server.address() << std::endl;
  // The address has the token: nobody else tells it.
  if (!std::cout) throw std::runtime_error("standard output: writing failed");
  if (!options.noBrowser) openBrowser(server.address());
  server.run([&late] {
    for (LateNotes& notes : late) notes.look();
    return !wasInterrupted();
  });
}

}  // namespace

void addViewCommand(CLI::App& app) {
  const auto options = std::make_shared<ViewOptions>();
  CLI::App* const command = app.add_subcommand(
      "view",
      "Shows a recording in the browser: the scene in 3D, both cameras' blobs and where each "
      "ended,\n"
      "a time line, plots. Follows a recording that a host is still writing. Ctrl-C ends it.\n"
      "\n"
      "  algtrack view walk.algrec                           prints the address, opens the "
      "browser\n"
      "  algtrack view --follow session.algrec --no-browser --port 8700\n"
      "  algtrack view work.algrec --body tool.json          where markers that belong together "
      "are\n"
      "  algtrack view before.algrec after.algrec            one laid over the other\n");
  command->add_option("file", options->files, "the recording; a second one is laid over it")
      ->required()
      ->expected(1, 100);
  addBodyFiles(*command, options->bodies);
  command->add_flag("--follow", options->follow, "wait for a recording that is not there yet");
  command->add_option("--port", options->server.port, "to serve the page on (any free one)")
      ->check(wholeNumberTo(65535));
  command
      ->add_option(
          "--listen", options->server.address,
          "an address of this machine, in digits; whoever reaches it and has the token can "
          "look")
      ->capture_default_str();
  command->add_option(
      "--token", options->server.token,
      "the secret in the address, so that links outlive the program (a random one)");
  command->add_flag("--no-browser", options->noBrowser, "only print the address");
  command->callback([options] { viewFiles(*options); });
}

}  // namespace algtrack
