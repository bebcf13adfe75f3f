// Any bytes to the viewer's server, over a socket of its own: they are answered or refused, the
// connection ends, and nothing of the recording is told without the token.
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <alg_kit/view/Server.h>
#include <fuzz/ScratchFile.h>
#include <sim/Simulator.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

namespace {

// The inputs of the corpus know them; the port is put in its place.
constexpr const char* kToken = "aaaaaaaaaaaaaaaa";
constexpr const char* kPort = ":8700";

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "ViewerServerFuzz: %s\n", what.c_str());
  std::abort();
}

struct Sink : algorithm::DataSink {
  bool Deliver(const void*, int, int) override { return true; }
};

/// A server over a short recording, which is read already.
class Served {
 public:
  Served() : file_("viewer") {
    const sim::Simulator device(rig::builtInRig(), sim::Scene::moving(2));
    {
      recording::RecordingAlgOptions options;
      options.overwrite = true;
      static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
      recording::RecordingAlg alg(library, file_.path(), options);
      static Sink sink;  // the library keeps it
      alg.SetDataCallback(&sink);
      alg.Init(2, reinterpret_cast<const unsigned char*>(&device.rig().calibration), 0);
      for (int n = 0; n < 30; ++n) {
        const sim::Frame frame = device.frame(n);
        alg.InputStream(device.streamType(), frame.payload.data(), 0,
                        static_cast<int>(frame.payload.size()));
      }
    }
    watchers_.push_back(std::make_unique<view::Watcher>(file_.path()));
    while (watchers_[0]->status().state != view::Watcher::State::kEnded)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    view::ServerOptions options;
    options.token = kToken;
    server_ = std::make_unique<view::Server>(watchers_, options);
  }

  view::Server& server() { return *server_; }

  std::string withPort(std::string input) const {
    const std::string address = server_->address();  // http://127.0.0.1:PORT/?...
    const std::size_t colon = address.find(':', 7);
    const std::string port = address.substr(colon, address.find('/', colon) - colon);
    for (std::size_t at = 0; (at = input.find(kPort, at)) != std::string::npos; at += port.size())
      input.replace(at, std::string(kPort).size(), port);
    return input;
  }

 private:
  fuzzing::ScratchFile file_;
  view::Watchers watchers_;
  std::unique_ptr<view::Server> server_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Served served;
  int ends[2];
  if (size > 100000 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 0;
  const std::string given = served.withPort(std::string(reinterpret_cast<const char*>(data), size));
  served.server().serve(ends[0]);
  std::string said;
  char buffer[65536];
  std::size_t sent = 0;
  bool open = true;
  // What is sent and answered in turns; then the client goes away.
  for (int quiet = 0; quiet < 2;) {
    bool any = served.server().poll();
    if (sent < given.size()) {
      const ssize_t more =
          send(ends[1], given.data() + sent, given.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (more > 0) sent += static_cast<std::size_t>(more);
      if (more > 0) any = true;
    }
    const ssize_t came = open ? recv(ends[1], buffer, sizeof buffer, MSG_DONTWAIT) : -1;
    if (came > 0) said.append(buffer, static_cast<std::size_t>(came));
    if (came == 0) open = false;
    any = any || came > 0;
    quiet = any ? 0 : quiet + 1;
  }
  close(ends[1]);
  while (served.server().poll()) {
  }
  if (given.find(kToken) == std::string::npos &&
      (said.compare(0, 12, "HTTP/1.1 200") == 0 || said.compare(0, 12, "HTTP/1.1 101") == 0))
    fail("a client without the token was let in");
  return 0;
}
