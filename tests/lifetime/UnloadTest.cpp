// A host that loads the library, works with it, and unloads it. The leak checker sees what is left
// behind: nothing points any more to what a library that is gone had kept.
#include <gtest/gtest.h>

#include <tests/lifetime/Tracking.h>

namespace {

using algorithm::PoseAnswer;
using testing_support::LoadedLibrary;
using testing_support::Tracking;

TEST(Unload, TakesThePipelineAndLeavesNothingBehind) {
  ASSERT_FALSE(LoadedLibrary::isLoaded()) << "linked after all: nothing would be unloaded";
  {
    const LoadedLibrary library;
    {
      Tracking host(library);
      ASSERT_EQ(host.answered(), Tracking::kOperations);
      delete &host.sink;
    }
    EXPECT_TRUE(LoadedLibrary::isLoaded());
  }
  EXPECT_FALSE(LoadedLibrary::isLoaded());
}

TEST(Unload, OfALibraryThatWasNeverCalledIsQuiet) {
  for (int n = 0; n < 3; ++n) {
    const LoadedLibrary library;
    EXPECT_EQ(library.create(3), nullptr);
  }
  EXPECT_FALSE(LoadedLibrary::isLoaded());
}

TEST(Unload, LetsTheNextLoadBeginAnew) {
  for (int n = 0; n < 3; ++n) {
    const LoadedLibrary library;
    Tracking host(library);
    PoseAnswer answer;
    // Bridged: nothing was seen. The answer of a pipeline that had gone on would hold a position.
    ASSERT_TRUE(host.query(answer));
    EXPECT_EQ(answer.raw[2], 0.0f);
    ASSERT_TRUE(host.feed());
    ASSERT_TRUE(host.query(answer));
    EXPECT_NEAR(answer.raw[2], -1000, 1e-3);
    delete &host.sink;
  }
}

}  // namespace
