// Any file as a recording: it is read to its end or refused with a RecordingError of one line.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <alg_kit/recording/Recording.h>
#include <fuzz/ScratchFile.h>

namespace {

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "RecordingReaderFuzz: %s\n", what.c_str());
  std::abort();
}

void readAll(const recording::RecordingReader& reader) {
  recording::EntryCursor cursor = reader.entries();
  session::Entry entry;
  std::int64_t previous = -1;
  while (cursor.next(entry)) {
    const session::Call& call = entry.call;
    if (call.index <= previous) fail("calls out of order");
    previous = call.index;
    // A player hands the payload to the library: it must be as long as what is read there.
    if (!call.payload.empty() && call.payload.size() != session::payloadSize(call, 0)) {
      fail("a payload of the wrong size");
    }
  }
  reader.callCount(session::CallKind::kInputStream);
  reader.entry(reader.callCount() / 2);
  if (const auto packet = reader.packetCall(0)) reader.truthOf(*packet);
  reader.configurations();
  if (reader.hasTruth()) reader.truth();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::ScratchFile file("recording");
  file.write(data, size);
  try {
    readAll(recording::RecordingReader(file.path()));
  } catch (const recording::RecordingError& error) {
    const std::string text = error.what();
    if (text.find('\n') != std::string::npos) fail("a message of several lines: " + text);
    if (text.compare(0, file.path().size(), file.path()) != 0) fail("no file named: " + text);
  }
  return 0;
}
