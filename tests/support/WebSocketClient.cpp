#include <tests/support/WebSocketClient.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

namespace testing_support {
namespace {

constexpr timeval kPatience{2, 0};

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char c : bytes) value = value << 8 | static_cast<std::uint8_t>(c);
  return value;
}

}  // namespace

TcpClient::TcpClient(int port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int one = 1;
  setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
  close(socket_);
  socket_ = -1;
}

TcpClient::~TcpClient() {
  if (socket_ >= 0) close(socket_);
}

bool TcpClient::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::string TcpClient::receive(std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t have = 0;
  while (have < size) {
    const auto got = recv(socket_, bytes.data() + have, size - have, 0);
    if (got <= 0) break;
    have += static_cast<std::size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

bool TcpClient::closedByServer() {
  char some[4096];
  for (;;) {
    const auto got = recv(socket_, some, sizeof some, 0);
    if (got == 0) return true;
    if (got < 0) return errno == ECONNRESET;
  }
}

void TcpClient::vanish() {
  const linger atOnce{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  close(socket_);
  socket_ = -1;
}

std::string webSocketFrame(int opcode, std::string_view payload) {
  std::string frame(1, static_cast<char>(0x80 | opcode));
  const std::size_t size = payload.size();
  if (size < 126) {
    frame += static_cast<char>(0x80 | size);
  } else {
    const int bytes = size < 65536 ? 2 : 8;
    frame += static_cast<char>(0x80 | (bytes == 2 ? 126 : 127));
    for (int i = bytes - 1; i >= 0; --i) frame += static_cast<char>(std::uint64_t{size} >> 8 * i);
  }
  const std::string_view mask("\x11\x22\x33\x44", 4);
  frame += mask;
  for (std::size_t i = 0; i < size; ++i) frame += static_cast<char>(payload[i] ^ mask[i % 4]);
  return frame;
}

std::string WebSocketClient::shakeHands(const std::string& subProtocol,
                                        const std::string& moreHeaders) {
  tcp_.send(
      "GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
      (subProtocol.empty() ? "" : "Sec-WebSocket-Protocol: " + subProtocol + "\r\n") + moreHeaders +
      "\r\n");
  std::string answer;
  while (answer.size() < 4 || answer.compare(answer.size() - 4, 4, "\r\n\r\n") != 0) {
    const std::string next = tcp_.receive(1);
    if (next.empty()) break;
    answer += next;
  }
  return answer;
}

bool WebSocketClient::sendText(std::string_view text) {
  return tcp_.send(webSocketFrame(1, text));
}

WebSocketClient::Message WebSocketClient::receive() {
  const std::string head = tcp_.receive(2);
  if (head.size() < 2) return {};
  std::uint64_t size = static_cast<std::uint8_t>(head[1]) & 0x7F;
  if (size == 126) size = bigEndian(tcp_.receive(2));
  if (size == 127) size = bigEndian(tcp_.receive(8));
  return {head[0] & 0xF, tcp_.receive(static_cast<std::size_t>(size))};
}

}  // namespace testing_support
