// A whole recording file through what reads it: built once for each, with WHAT = trace, replay or
// report. It is taken, or refused in one line.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/recording/UnitCursor.h>
#include <fuzz/WholeRecording.h>

#if defined(ALG_FUZZ_TRACE)
#include <alg_kit/trace/PipelineTrace.h>
#elif defined(ALG_FUZZ_REPLAY)
#include <alg_kit/session/Player.h>
#else
#include <alg_kit/analysis/ReportMaker.h>
#include <alg_kit/report/ReportJson.h>
#include <alg_kit/text/JsonText.h>
#endif

namespace {

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "WholeRecordingFuzz: %s\n", what.c_str());
  std::abort();
}

#if defined(ALG_FUZZ_TRACE)

void use(const recording::RecordingReader& reader) {
  trace::PipelineTrace trace;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) trace.feed(entry.call);
}

#elif defined(ALG_FUZZ_REPLAY)

void use(const recording::RecordingReader& reader) {
  static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  session::Player player(library);
  recording::UnitCursor units(reader.entries());
  for (session::Unit unit; units.next(unit);)
    if (player.play(unit).size() != unit.size()) fail("a unit of another size was played");
}

#else

bodies::Body threeMarkers() {
  bodies::Body body;
  for (int id = 0; id < 3; ++id) {
    bodies::BodyMarker& marker = body.markers.emplace_back();
    marker.id = id;
    marker.position[id] = 40;
  }
  return body;
}

void use(const recording::RecordingReader& reader) {
  static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  const analysis::Report made = analysis::makeReport(reader, {}, {}, {threeMarkers()}, *library);
  if (text::ofJson(report::jsonOf(made.numbers)).empty()) fail("no numbers");
  if (text::ofJson(report::jsonOf(made.curves)).empty()) fail("no curves");
}

#endif

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::ScratchFile file("whole");
  if (size > 4096 || !fuzzing::writeRecording(file, data, size)) return 0;
  try {
    use(recording::RecordingReader(file.path()));
  } catch (const std::runtime_error& error) {
    if (std::string(error.what()).find('\n') != std::string::npos)
      fail(std::string("a message of several lines: ") + error.what());
  }
  return 0;
}
