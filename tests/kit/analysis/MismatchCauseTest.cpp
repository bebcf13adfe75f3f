#include <alg_kit/analysis/MismatchCause.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using analysis::causeOfMismatch;
using analysis::Completeness;
using session::CallKind;
using testing::HasSubstr;
using testing::Not;

session::Entry entry(std::int64_t index, CallKind kind, bool delivers = false) {
  session::Entry entry;
  entry.call.index = index;
  entry.call.kind = kind;
  entry.call.returned = 1;
  if (delivers) entry.blocks.emplace_back();
  return entry;
}

recording::Metadata recordedWith(const std::string& version) {
  recording::Metadata metadata;
  metadata.libraryVersion = version;
  return metadata;
}

TEST(MismatchCauseTest, NamesBothVersionsWhereTheyDiffer) {
  EXPECT_EQ(causeOfMismatch(recordedWith("1.0.0"), {}, "1.1.0"),
            "recorded with library version 1.0.0, run with 1.1.0");
}

TEST(MismatchCauseTest, CountsTheCallsThatAreMissingAndNamesTheFirst) {
  Completeness completeness;
  for (const std::int64_t index : {0, 1, 5, 6, 9})
    completeness.add(entry(index, CallKind::kInputStream));
  EXPECT_EQ(completeness.missingCalls(), 5);
  EXPECT_EQ(completeness.firstMissing(), 2);
  const std::string cause = causeOfMismatch(recordedWith("1.0.0"), completeness, "1.0.0");
  EXPECT_EQ(cause, "5 calls are missing in the recording, from call 2 on");
}

TEST(MismatchCauseTest, SeesThatTheLibraryHadBeenInitialisedBefore) {
  Completeness late;
  late.add(entry(0, CallKind::kInputStream, true));
  EXPECT_TRUE(late.beganLate());
  EXPECT_THAT(causeOfMismatch(recordedWith("1.0.0"), late, "1.0.0"),
              HasSubstr("did not begin with the host's first call"));
  Completeness whole;
  whole.add(entry(0, CallKind::kInit));
  whole.add(entry(1, CallKind::kInputStream, true));
  EXPECT_FALSE(whole.beganLate());
}

TEST(MismatchCauseTest, DoesNotBlameTheVersionThatIsRunning) {
  const std::string cause = causeOfMismatch(recordedWith("1.0.0"), {}, "1.0.0");
  EXPECT_THAT(cause, Not(HasSubstr("recorded with library version")));
  EXPECT_THAT(cause, HasSubstr("no call is missing"));
}

}  // namespace
