// What a stream costs the host, and how long a block takes to its clients. A simulated device at
// 90 Hz with six objects drives the library through a tap; in each scene other clients are there.
// The time of a block runs from the library's `Deliver` to the bytes in a client's hands, both in
// this process: the client's own waking is part of it.
//   stream_latency [SECONDS-PER-SCENE]
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/session/TapAlg.h>
#include <alg_kit/stream/FoxgloveServer.h>
#include <alg_kit/stream/OpenIgtLinkServer.h>
#include <alg_kit/stream/OscSender.h>
#include <sim/Simulator.h>
#include <tests/support/WebSocketClient.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using testing_support::TcpClient;
using testing_support::WebSocketClient;

std::int64_t nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
      .count();
}

double percentile(std::vector<std::int64_t> values, double share) {
  if (values.empty()) return 0;
  const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return static_cast<double>(values[static_cast<std::size_t>(place)]) / 1e3;
}

void print(const std::string& name, const std::vector<std::int64_t>& ns) {
  std::printf("%-46s %7zu %9.1f %9.1f %9.1f\n", name.c_str(), ns.size(), percentile(ns, 0.5),
              percentile(ns, 0.99), percentile(ns, 1));
  std::fflush(stdout);
}

constexpr std::size_t kMostFrames = 1000000;
std::vector<std::atomic<std::int64_t>> delivered(kMostFrames);  // by frame

struct Host : algorithm::DataSink, algorithm::LogSink {
  std::size_t frame = 0;
  bool Deliver(const void*, int, int) override {
    delivered[frame].store(nowNs(), std::memory_order_release);
    return true;
  }
  bool Log(int, const char*) override { return true; }
};

/// Drives the library as a host does; gives the times of the packets' calls.
std::vector<std::int64_t> drive(session::TapAlg& alg, double seconds) {
  static Host host;
  const sim::Simulator device(rig::builtInRig(), sim::Scene::moving(2));
  alg.SetLogCallback(&host);
  alg.SetDataCallback(&host);
  alg.Init(2, reinterpret_cast<const unsigned char*>(&device.rig().calibration), 0);
  std::vector<std::int64_t> times;
  auto due = Clock::now();
  for (std::size_t n = 0; n < static_cast<std::size_t>(seconds * 90); ++n) {
    const sim::Bytes packet = device.frame(static_cast<std::int64_t>(n)).payload;
    host.frame = n;
    const std::int64_t begin = nowNs();
    alg.InputStream(device.streamType(), packet.data(), 0, static_cast<int>(packet.size()));
    times.push_back(nowNs() - begin);
    algorithm::PoseAnswer pose;
    for (int event = 0; event < 6; ++event) alg.HandleEvent(event, nullptr, &pose);
    due += std::chrono::microseconds(11111);
    std::this_thread::sleep_until(due);
  }
  return times;
}

/// The time of a block that has just come, by the frame number in its text.
void note(const std::string& text, const std::string& key, std::vector<std::int64_t>& times) {
  const std::int64_t now = nowNs();
  const std::size_t at = text.find(key);
  if (at == std::string::npos) return;
  const auto frame = static_cast<std::size_t>(std::atoll(text.c_str() + at + key.size()));
  if (frame < kMostFrames) times.push_back(now - delivered[frame].load(std::memory_order_acquire));
}

std::vector<std::int64_t> readBlocks(WebSocketClient& client) {
  client.shakeHands();
  client.sendText(R"({"op":"subscribe","subscriptions":[{"id":1,"channelId":4}]})");
  std::vector<std::int64_t> times;
  for (;;) {
    const auto message = client.receive();
    if (message.opcode == 2) note(message.payload, "\"frame_number\":", times);
    if (message.opcode == -1 || message.opcode == 8) return times;
  }
}

std::vector<std::int64_t> readOpenIgtLink(TcpClient& client) {
  std::vector<std::int64_t> times;
  for (;;) {
    constexpr std::size_t kHeader = 58, kSizeAt = 42;
    const std::string header = client.receive(kHeader);
    if (header.size() < kHeader) return times;
    std::size_t size = 0;
    for (std::size_t i = 0; i < 8; ++i)
      size = size << 8 | static_cast<std::uint8_t>(header[kSizeAt + i]);
    note(client.receive(size), "frame_number=", times);
  }
}

std::vector<std::int64_t> readOsc(int socket) {
  std::vector<std::int64_t> times;
  char bytes[65536];
  for (;;) {
    const auto size = recv(socket, bytes, sizeof bytes, 0);
    if (size <= 0) return times;
    // #bundle, time tag, size; path and types in multiples of four; version; frame number.
    const std::string datagram(bytes, static_cast<std::size_t>(size));
    if (datagram.size() < 56 || datagram.compare(20, 11, "/alg/object") != 0) continue;
    std::size_t frame = 0;
    for (std::size_t i = 48; i < 56; ++i)
      frame = frame << 8 | static_cast<std::uint8_t>(datagram[i]);
    note("=" + std::to_string(frame), "=", times);
  }
}

/// Runs a scene: `clients` runs beside the host until it returns or the scene is over.
void scene(const std::string& name, double seconds,
           const std::function<void(int port, const std::atomic<bool>& over)>& clients) {
  session::TapAlg alg(algorithm::AlgFactory::CreateALG(0));
  stream::FoxgloveOptions options;
  options.port = 0;
  stream::FoxgloveServer server(options, &alg);
  std::atomic<bool> over{false};
  std::thread thread([&] { clients(server.port(), over); });
  const auto times = drive(alg, seconds);
  over = true;
  const stream::StreamStatus status = server.status();
  server.end();
  thread.join();
  print("call, " + name, times);
  if (status.droppedCalls > 0)
    std::printf("  calls dropped: %lld\n", static_cast<long long>(status.droppedCalls));
}

void measureCalls(double seconds) {
  {
    session::TapAlg alg(algorithm::AlgFactory::CreateALG(0));
    print("call, no stream", drive(alg, seconds));
  }
  {
    struct Nothing : session::UnitSink {
      void take(const session::Unit&) noexcept override {}
    } nothing;
    session::TapAlg alg(algorithm::AlgFactory::CreateALG(0));
    alg.add(nothing);
    print("call, a listener that does nothing", drive(alg, seconds));
  }
  scene("no client", seconds, [](int, const std::atomic<bool>&) {});
  scene("a client that reads", seconds, [](int port, const std::atomic<bool>&) {
    WebSocketClient client(port);
    readBlocks(client);
  });
  scene("a client that stalls", seconds, [](int port, const std::atomic<bool>& over) {
    WebSocketClient client(port);
    client.shakeHands();
    std::string all = R"({"op":"subscribe","subscriptions":[)";
    for (int i = 0; i < 60; ++i)
      all += (i > 0 ? "," : "") + std::string("{\"id\":") + std::to_string(i) +
             ",\"channelId\":" + std::to_string(i % 6 + 1) + "}";
    client.sendText(all + "]}");
    while (!over) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  });
  scene("clients that vanish, 100 connections", seconds,
        [=](int port, const std::atomic<bool>& over) {
          for (int i = 0; i < 100 && !over; ++i) {
            WebSocketClient client(port);
            client.shakeHands();
            client.sendText(R"({"op":"subscribe","subscriptions":[{"id":1,"channelId":1}]})");
            std::this_thread::sleep_for(std::chrono::duration<double>(seconds / 120));
            client.tcp().vanish();
          }
        });
  scene("clients that send garbage", seconds, [](int port, const std::atomic<bool>& over) {
    while (!over) {
      TcpClient raw(port);
      raw.send(std::string(20000, '\xFE'));
      WebSocketClient client(port);
      client.shakeHands();
      client.tcp().send(std::string(3000, '\xFE'));
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
}

void measureLatency(double seconds) {
  session::TapAlg alg(algorithm::AlgFactory::CreateALG(0));
  std::vector<std::int64_t> foxgloveTimes, linkTimes, oscTimes;
  const int udp = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  const timeval patience{2, 0};
  setsockopt(udp, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (bind(udp, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      getsockname(udp, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    std::exit(1);
  {
    stream::FoxgloveOptions foxglove;
    foxglove.port = 0;
    stream::OpenIgtLinkOptions link;
    link.port = 0;
    stream::OscOptions osc;
    osc.port = ntohs(address.sin_port);
    stream::FoxgloveServer foxgloveServer(foxglove, &alg);
    stream::OpenIgtLinkServer linkServer(link, &alg);
    stream::OscSender oscSender(osc, &alg);
    WebSocketClient foxgloveClient(foxgloveServer.port());
    TcpClient linkClient(linkServer.port());
    std::thread readers[] = {std::thread([&] { foxgloveTimes = readBlocks(foxgloveClient); }),
                             std::thread([&] { linkTimes = readOpenIgtLink(linkClient); }),
                             std::thread([&] { oscTimes = readOsc(udp); })};
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    drive(alg, seconds);
    foxgloveServer.end();
    linkServer.end();
    oscSender.end();
    for (std::thread& reader : readers) reader.join();
  }
  close(udp);
  print("block, Deliver to a Foxglove client", foxgloveTimes);
  print("block, Deliver to an OpenIGTLink client", linkTimes);
  print("block, Deliver to an OSC client", oscTimes);
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 20;
  if (!(seconds > 0 && seconds < 10000)) {
    std::fprintf(stderr, "usage: stream_latency [SECONDS-PER-SCENE]\n");
    return 2;
  }
  try {
    std::printf("%-46s %7s %9s %9s %9s\n", "us", "n", "50 %", "99 %", "worst");
    measureLatency(seconds);
    measureCalls(seconds);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "stream_latency: %s\n", error.what());
    return 1;
  }
}
