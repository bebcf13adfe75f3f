#include <alg_factory/api/AlgFactory.h>

#include <string>

#include <gtest/gtest.h>

namespace {

// Headers and library of one build agree; a host compares them to see whether its own do.
TEST(Version, OfTheLibraryIsThatOfTheHeaders) {
  EXPECT_STREQ(alg_factory_version(), ALG_FACTORY_VERSION);
}

TEST(Version, ConsistsOfItsNumbers) {
  EXPECT_EQ(ALG_FACTORY_VERSION, std::to_string(ALG_FACTORY_VERSION_MAJOR) + "." +
                                     std::to_string(ALG_FACTORY_VERSION_MINOR) + "." +
                                     std::to_string(ALG_FACTORY_VERSION_PATCH));
}

}  // namespace
