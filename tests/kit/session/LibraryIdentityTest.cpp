#include <alg_kit/session/LibraryIdentity.h>
#include <tests/support/ScriptedAlg.h>

#include <gtest/gtest.h>

namespace {

// The scripted object's code is this program's.
TEST(LibraryIdentityTest, NamesTheFileThatHoldsTheObjectsCode) {
#if !defined(__linux__)
  GTEST_SKIP() << "the platform does not tell";
#endif
  ScriptedAlg alg;
  const session::LibraryIdentity identity = session::identityOf(alg);
  EXPECT_EQ(identity.file, "alg_kit_session_tests");
  EXPECT_EQ(identity.version, "");  // it exports none
  EXPECT_EQ(identity.buildId.find_first_not_of("0123456789abcdef"), std::string::npos);
}

}  // namespace
