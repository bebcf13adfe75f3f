#include <tests/support/FixedStream.h>

#include <alg_kit/session/ByteForm.h>
#include <alg_kit/session/Player.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testing_support {

using session::Bytes;
using session::Unit;

std::vector<Unit> readUnits(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path + ": cannot be opened");
  const Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::size_t place = sizeof session::kByteFormMagic;
  if (bytes.size() < place ||
      !std::equal(bytes.begin(), bytes.begin() + sizeof session::kByteFormMagic,
                  session::kByteFormMagic))
    throw std::runtime_error(path + ": byte 0: expected a session's first bytes");
  std::vector<Unit> units;
  while (place < bytes.size()) {
    const std::size_t taken =
        session::readBytes(&bytes[place], bytes.size() - place, units.emplace_back());
    if (taken == 0) throw std::runtime_error(path + ": its last unit is cut");
    place += taken;
  }
  return units;
}

void writeUnits(const std::string& path, const std::vector<Unit>& units) {
  Bytes bytes(std::begin(session::kByteFormMagic), std::end(session::kByteFormMagic));
  for (const Unit& unit : units) session::appendBytes(unit, bytes);
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error(path + ": cannot be written");
}

std::vector<Unit> played(algorithm::AlgBase& alg, const std::vector<Unit>& units) {
  static session::Player player(&alg);
  std::vector<Unit> came;
  for (const Unit& unit : units) {
    Unit& now = came.emplace_back();
    session::copy(player.play(unit), now);
    for (std::size_t i = 0; i < now.size(); ++i) now[i].call.durationNs.reset();
  }
  return came;
}

}  // namespace testing_support
