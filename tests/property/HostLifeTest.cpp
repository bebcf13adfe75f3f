// Random hosts' lives. RapidCheck prints the seed of every run; RC_PARAMS="seed=..." repeats one.
#include <alg_kit/trace/FreshAlg.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

#include <tests/property/LifeGenerator.h>
#include <tests/support/HostLife.h>

namespace {

using namespace testing_support;
using session::Bytes;

/// A file that is gone when the test ends.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& name)
      : path_(std::filesystem::temp_directory_path() /
              ("alg_life_" + std::to_string(getpid()) + "_" + name)) {}
  ~ScratchFile() { std::filesystem::remove(path_); }
  std::string path() const { return path_.string(); }

  void write(const Bytes& bytes) const {
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  std::string read() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  std::filesystem::path path_;
};

RC_GTEST_PROP(HostLife, KeepsEveryPromiseWhateverTheHostDoes, ()) {
  const Bytes bytes = *lifeBytes();
  const Life life = lifeFrom(bytes.data(), bytes.size());
  trace::FreshAlg alg;
  const std::vector<session::Entry> lived = live(alg, life);
  RC_ASSERT(brokenPromise(lived) == "");

  int objects = 0;
  for (const session::Entry& entry : lived) {
    for (const session::DeliveredBlock& delivered : entry.blocks) {
      for (const auto& record : delivered.block.records) objects += record.id != -1;
    }
  }
  RC_CLASSIFY(life.size() > 50, "more than 50 calls");
  RC_CLASSIFY(objects > 10, "more than 10 objects seen");
}

/// Lives the life in a process of its own, through the shared library. Looking for leaks takes a
/// sanitized process longer than its life does; other tests look.
bool liveElsewhere(const ScratchFile& life, const ScratchFile& answers,
                   const std::string& environment = "") {
  const std::string command = environment + " ASAN_OPTIONS=detect_leaks=0 '" ALG_LIFE_RUNNER "' '" +
                              life.path() + "' '" + answers.path() + "'";
  return std::system(command.c_str()) == 0;
}

// The second process gets its memory filled with another byte pattern: what nobody set would show.
RC_GTEST_PROP(HostLife, GivesTheSameBytesInTwoProcesses, ()) {
  const Bytes bytes = *lifeBytes();
  const ScratchFile life("calls"), first("first"), second("second");
  life.write(bytes);
  RC_ASSERT(liveElsewhere(life, first, "MALLOC_PERTURB_=0"));
  RC_ASSERT(liveElsewhere(life, second, "MALLOC_PERTURB_=165"));
  RC_ASSERT(first.read() == second.read());
  RC_ASSERT(bytes.empty() == first.read().empty());
}

// The one-pipeline library in the other process and a pipeline of its own in this one agree.
RC_GTEST_PROP(HostLife, GivesTheSameBytesThroughTheSharedLibraryAndTheStages, ()) {
  const Bytes bytes = *lifeBytes();
  const Life life = lifeFrom(bytes.data(), bytes.size());
  trace::FreshAlg alg;
  const Bytes here = bytesOf(live(alg, life));

  const ScratchFile calls("calls"), answers("answers");
  calls.write(bytes);
  RC_ASSERT(liveElsewhere(calls, answers));
  RC_ASSERT(answers.read() == std::string(here.begin(), here.end()));
}

}  // namespace
