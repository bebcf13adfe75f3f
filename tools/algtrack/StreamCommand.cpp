// Sends a recording to other programs at its pace, or what a host is recording.
#include <alg_kit/recording/FollowingReader.h>
#include <alg_kit/recording/FrameRate.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/stream/FoxgloveServer.h>
#include <alg_kit/stream/OpenIgtLinkServer.h>
#include <alg_kit/stream/OscSender.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/Interrupt.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/Pace.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace algtrack {
namespace {

constexpr std::chrono::milliseconds kLook(20);  // for what a host has written meanwhile
constexpr double kFastest = 1000;
constexpr std::size_t kPacketsForRate = 500;  // so that the first one goes out at once

struct StreamCommandOptions {
  std::string file, osc;
  std::string listen = "127.0.0.1";
  std::vector<std::string> origins;
  stream::SceneOptions scene;
  std::optional<int> foxglove, openIgtLink;
  bool follow = false;
  double speed = 1;
};

struct Sinks {
  std::vector<std::unique_ptr<stream::StreamSink>> all;

  void take(const session::Unit& unit) {
    for (const auto& sink : all) sink->take(unit);
  }
};

template <typename Options>
Options optionsOf(const StreamCommandOptions& options) {
  Options result;
  static_cast<stream::SceneOptions&>(result) = options.scene;
  return result;
}

void addOsc(const StreamCommandOptions& options, Sinks& sinks) {
  const std::string& place = options.osc;
  const std::size_t colon = place.rfind(':');
  stream::OscOptions osc = optionsOf<stream::OscOptions>(options);
  const std::string port = colon == std::string::npos ? "" : place.substr(colon + 1);
  osc.host = place.substr(0, colon);
  if (osc.host.empty() || port.empty() || port.size() > 5 ||
      !std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; }))
    throw std::runtime_error("--osc: expected HOST:PORT, found " + place);
  osc.port = std::stoi(port);
  sinks.all.push_back(std::make_unique<stream::OscSender>(osc));
  std::cout << "OSC: to udp://" << place << "\n";
}

/// As it stands before a port.
std::string hostOf(const std::string& address) {
  return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

Sinks sinksOf(const StreamCommandOptions& options) {
  Sinks sinks;
  if (options.foxglove) {
    stream::FoxgloveOptions foxglove = optionsOf<stream::FoxgloveOptions>(options);
    foxglove.address = options.listen;
    foxglove.port = *options.foxglove;
    foxglove.origins = options.origins;
    auto server = std::make_unique<stream::FoxgloveServer>(foxglove);
    std::cout << "Foxglove: ws://" << hostOf(options.listen) << ":" << server->port() << "\n";
    sinks.all.push_back(std::move(server));
  }
  if (options.openIgtLink) {
    stream::OpenIgtLinkOptions link = optionsOf<stream::OpenIgtLinkOptions>(options);
    link.address = options.listen;
    link.port = *options.openIgtLink;
    auto server = std::make_unique<stream::OpenIgtLinkServer>(link);
    std::cout << "OpenIGTLink: " << hostOf(options.listen) << ":" << server->port() << "\n";
    sinks.all.push_back(std::move(server));
  }
  if (!options.osc.empty()) addOsc(options, sinks);
  if (sinks.all.empty())
    throw std::runtime_error(
        "stream: expected where to send, --foxglove, --osc or --openigtlink, found none");
  std::cout << std::flush;
  return sinks;
}

void play(const StreamCommandOptions& options, Sinks& sinks) {
  const recording::RecordingReader reader(options.file);
  recording::UnitCursor cursor(reader.entries());
  std::optional<Pace> pace;
  for (session::Unit unit; cursor.next(unit);) {
    if (!pace) pace.emplace(unit[0].call.startNs, options.speed);
    pace->wait(unit[0].call.startNs);
    sinks.take(unit);
  }
}

void follow(const StreamCommandOptions& options, bool awaited, Sinks& sinks) {
  recording::FollowingReader reader(options.file);
  LateJournalNote journal;
  session::Unit unit;
  while (reader.state() != recording::FollowingReader::State::kEnded) {
    while (reader.next(unit)) {
      stopIfInterrupted();
      noteUnit(unit[0].call, options.file);
      sinks.take(unit);
    }
    stopIfInterrupted();
    if (awaited) journal.look(reader.path(), reader.metadata());
    std::this_thread::sleep_for(kLook);
  }
}

void sendStream(StreamCommandOptions& options) {
  const InterruptsNoted interrupts;
  const bool awaited = options.follow && !recording::isThere(options.file);
  if (!options.follow) {
    const recording::RecordingReader reader(options.file);
    noteDoubts(reader);
    if (!options.scene.bodies.empty())
      options.scene.frameRate = recording::frameRateOf(reader, kPacketsForRate);
  } else if (!awaited) {
    noteMissingJournal(recording::RecordingReader(options.file));
  }
  Sinks sinks = sinksOf(options);
  try {
    if (options.follow)
      follow(options, awaited, sinks);
    else
      play(options, sinks);
  } catch (const std::exception&) {
    if (!wasInterrupted()) throw;  // Ctrl-C is a way to end it
  }

  stream::StreamStatus sum;
  for (const auto& sink : sinks.all) {
    sink->end();
    while (!sink->status().ended) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const stream::StreamStatus status = sink->status();
    sum.sentMessages += status.sentMessages;
    sum.droppedMessages += status.droppedMessages;
    sum.droppedCalls += status.droppedCalls;
  }
  std::cout << "Sent: " << sum.sentMessages << " messages; left out: " << sum.droppedMessages
            << " for slow clients, " << sum.droppedCalls << " calls that came too fast\n";
}

}  // namespace

void addStreamCommand(CLI::App& app) {
  const auto options = std::make_shared<StreamCommandOptions>();
  CLI::App* const command = app.add_subcommand(
      "stream",
      "Sends a recording to other programs at its pace, or what a host is recording just now.\n"
      "Clients of this machine alone can connect, unless --listen says otherwise.\n"
      "\n"
      "  algtrack stream walk.algrec --foxglove 8765\n"
      "  algtrack stream walk.algrec --osc 127.0.0.1:9000 --speed 0.5\n"
      "  algtrack stream work.algrec --openigtlink 18944 --body tool.json\n"
      "  algtrack stream --follow session.algrec --openigtlink 18944\n");
  command->add_option("file", options->file, "the recording")->required();
  CLI::Option* const follow =
      command->add_flag("--follow", options->follow,
                        "send what is recorded as it comes, until the recording is closed; the "
                        "file need not be there yet");
  CLI::Option* const foxglove =
      command
          ->add_option("--foxglove", options->foxglove,
                       "PORT of a WebSocket server for viewers of robot data; 0 = a free one")
          ->check(wholeNumberTo(65535));
  command->add_option("--osc", options->osc, "HOST:PORT to send OSC messages to, over UDP");
  command
      ->add_option("--openigtlink", options->openIgtLink,
                   "PORT of a server for medical and research software; 0 = a free one")
      ->check(wholeNumberTo(65535));
  command
      ->add_option("--listen", options->listen,
                   "ADDRESS of the interface that the servers are reached at")
      ->capture_default_str();
  command
      ->add_option("--origin", options->origins,
                   "a web page that may connect (https://app.example.org); more than one is "
                   "possible; without it, any page")
      ->needs(foxglove);
  addBodyFiles(*command, options->scene.bodies);
  command->add_option("--speed", options->speed, "times as fast as it was recorded")
      ->check(numberFrom(0.01, kFastest))
      ->capture_default_str()
      ->excludes(follow);
  command->callback([options] { sendStream(*options); });
}

}  // namespace algtrack
