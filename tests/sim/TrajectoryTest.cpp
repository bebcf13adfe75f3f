#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sim/Pi.h>
#include <sim/Trajectory.h>

#include <cmath>
#include <string>
#include <vector>

#include <tests/support/TestFiles.h>

namespace sim {
namespace {

using testing::HasSubstr;
using testing_support::measuredFile;
using testing_support::messageOf;
using testing_support::TemporaryFile;

Trajectory quarterTurn() {
  const Eigen::Quaterniond turned(Eigen::AngleAxisd(kPi / 2, Eigen::Vector3d::UnitY()));
  return Trajectory({{100, {{0, 0, 0}, Eigen::Quaterniond::Identity()}},
                     {102, {{200, -40, 8}, turned}},
                     {103, {{300, -40, 8}, turned}}});
}

TEST(Trajectory, ReadsMetresAsMillimetres) {
  const TemporaryFile file(
      "# timestamp tx ty tz qx qy qz qw\n"
      "\n"
      "10.5 1 -2 0.25 0 0 0 2\r\n"
      "10.75\t1.5 -2 0.25 0 0.6 0 0.8  # a comment\n");
  const auto trajectory = Trajectory::readTum(file.path());
  ASSERT_EQ(trajectory.poses().size(), 2u);
  EXPECT_EQ(trajectory.duration(), 0.25);
  EXPECT_EQ(trajectory.poses()[0].time, 10.5);
  EXPECT_EQ(trajectory.poses()[0].pose.position, Eigen::Vector3d(1000, -2000, 250));
  EXPECT_EQ(trajectory.poses()[0].pose.orientation.w(), 1);  // made a unit quaternion
  EXPECT_NEAR(trajectory.poses()[1].pose.orientation.y(), 0.6, 1e-15);
}

TEST(Trajectory, LastLineNeedsNoLineEnd) {
  const TemporaryFile file("1 0 0 0 0 0 0 1\n2 0 0 0 0 0 0 1");
  EXPECT_EQ(Trajectory::readTum(file.path()).poses().size(), 2u);
}

struct BadFile {
  const char* content;
  const char* line;
  const char* problem;
};

TEST(Trajectory, ErrorsNameFileLineAndProblem) {
  const std::vector<BadFile> files = {
      {"1 0 0 0 0 0 0\n", ":1: ", "expected 8 numbers (t tx ty tz qx qy qz qw), found 7 words"},
      {"1 0 0 0 0 0 0 1 9\n", ":1: ", "found 9 words"},
      {"\n# c\nabc\n", ":3: ", "found 1 word"},
      {"1 0 0 x 0 0 0 1\n", ":1: ", "expected a finite number, found 'x'"},
      {"1 0 0 1.5m 0 0 0 1\n", ":1: ", "found '1.5m'"},
      {"1 0 0 0 0 0 0 1\n2 nan 0 0 0 0 0 1\n", ":2: ", "expected a finite number, found 'nan'"},
      {"1 0 inf 0 0 0 0 1\n", ":1: ", "found 'inf'"},
      {"1 0 1e999 0 0 0 0 1\n", ":1: ", "found '1e999'"},
      {"1 0 0 0 0 0 0 0\n", ":1: ", "expected a rotation quaternion"},
      {"1 0 0 0 1e300 1e300 0 0\n", ":1: ", "expected a rotation quaternion"},
      {"2 0 0 0 0 0 0 1\n1 0 0 0 0 0 0 1\n", ":2: ", "expected a time after the line before"},
      {"# only a comment\n", ": ", "expected a trajectory, found no pose"},
      {"", ": ", "expected a trajectory, found an empty file"},
  };
  for (const BadFile& bad : files) {
    SCOPED_TRACE(bad.content);
    const TemporaryFile file(bad.content);
    const std::string message = messageOf([&] { Trajectory::readTum(file.path()); });
    EXPECT_THAT(message, HasSubstr(file.path() + bad.line));
    EXPECT_THAT(message, HasSubstr(bad.problem));
  }
}

TEST(Trajectory, LeavesOutAndCountsPosesWhoseStampRepeats) {
  const TemporaryFile file(
      "1 0.1 0 0 0 0 0 1\n2 0.2 0 0 0 0 0 1\n2 0.9 0 0 0 0 0 1\n3 0.3 0 0 0 0 0 1\n");
  const Trajectory trajectory = Trajectory::readTum(file.path());
  ASSERT_EQ(trajectory.poses().size(), 3u);
  EXPECT_EQ(trajectory.poses()[1].pose.position.x(), 200);
  EXPECT_EQ(trajectory.repeatedStamps(), 1);
}

TEST(Trajectory, UnreadableBytesDoNotReachTheMessage) {
  const TemporaryFile file("1 0 0 \x1b[31m\x07 0 0 0 1\n");
  const std::string message = messageOf([&] { Trajectory::readTum(file.path()); });
  EXPECT_THAT(message, HasSubstr("found '?[31m?'"));
}

TEST(Trajectory, MissingFileAndDirectoryAreNamed) {
  EXPECT_THAT(messageOf([] { Trajectory::readTum("no/such/file.tum"); }),
              HasSubstr("no/such/file.tum: expected a trajectory, found no such file"));
  const std::string folder = std::filesystem::temp_directory_path().string();
  EXPECT_THAT(messageOf([&] { Trajectory::readTum(folder); }), HasSubstr("found a directory"));
}

TEST(Trajectory, InterpolatesPositionLinearlyAndOrientationBySlerp) {
  const Pose pose = quarterTurn().at(0.5);  // a quarter of the way to the second pose
  EXPECT_LT((pose.position - Eigen::Vector3d(50, -10, 2)).norm(), 1e-12);
  const Eigen::Quaterniond expected(Eigen::AngleAxisd(kPi / 8, Eigen::Vector3d::UnitY()));
  EXPECT_LT(pose.orientation.angularDistance(expected), 1e-7);
}

TEST(Trajectory, MeetsItsPosesExactly) {
  EXPECT_EQ(quarterTurn().at(2).position, Eigen::Vector3d(200, -40, 8));
  EXPECT_EQ(quarterTurn().at(3).position, Eigen::Vector3d(300, -40, 8));
}

TEST(Trajectory, StandsStillOutsideItsTimes) {
  EXPECT_EQ(quarterTurn().at(-5).position, Eigen::Vector3d(0, 0, 0));
  EXPECT_EQ(quarterTurn().at(50).position, Eigen::Vector3d(300, -40, 8));
}

TEST(Trajectory, SlerpTakesTheShortWayBetweenOppositeSigns) {
  const Eigen::Quaterniond turned(Eigen::AngleAxisd(0.2, Eigen::Vector3d::UnitZ()));
  const Eigen::Quaterniond negated(-turned.w(), -turned.x(), -turned.y(), -turned.z());
  const Trajectory trajectory({{0, {}}, {1, {Eigen::Vector3d::Zero(), negated}}});
  EXPECT_NEAR(trajectory.at(0.5).orientation.angularDistance(Eigen::Quaterniond::Identity()), 0.1,
              1e-9);
}

TEST(Trajectory, PartKeepsTheMotion) {
  const Trajectory whole = quarterTurn();
  const Trajectory part = whole.part(0.5, 2);
  EXPECT_DOUBLE_EQ(part.duration(), 2);
  for (const double t : {0.0, 0.3, 1.5, 1.9, 2.0})
    EXPECT_LT((part.at(t).position - whole.at(0.5 + t).position).norm(), 1e-9);
  EXPECT_DOUBLE_EQ(whole.part(2.5, 99).duration(), 0.5);
}

TEST(Trajectory, RefusesNoPoseAndTimesThatDoNotRise) {
  EXPECT_THROW(Trajectory({}), std::invalid_argument);
  EXPECT_THROW(Trajectory({{1, {}}, {1, {}}}), std::invalid_argument);
}

TEST(Trajectory, PlacedInFrontPutsTheMeanOnTheAxisAndTheRoomUpright) {
  const Trajectory room({{0, {{1000, 2000, 500}, Eigen::Quaterniond::Identity()}},
                         {1, {{1400, 2200, 1100}, Eigen::Quaterniond::Identity()}}});
  const Trajectory placed = room.placedInFront(1500);
  // From the mean (1200, 2100, 800): -200 to the right, 100 nearer, 300 below, and the opposite.
  EXPECT_LT((placed.poses()[0].pose.position - Eigen::Vector3d(-200, 300, 1400)).norm(), 1e-9);
  EXPECT_LT((placed.poses()[1].pose.position - Eigen::Vector3d(200, -300, 1600)).norm(), 1e-9);
  const Eigen::Vector3d up = placed.poses()[0].pose.orientation * Eigen::Vector3d::UnitZ();
  EXPECT_LT((up - Eigen::Vector3d(0, -1, 0)).norm(), 1e-12);
}

TEST(Trajectory, ReadsTheMeasuredMotion) {
  const std::string path = measuredFile("tum_vi_room1.tum");
  if (path.empty()) GTEST_SKIP() << "no measured motion here";
  const auto trajectory = Trajectory::readTum(path);
  EXPECT_EQ(trajectory.poses().size(), 16541u);
  EXPECT_NEAR(trajectory.duration(), 1520530449.21468 - 1520530308.18968, 1e-6);
  EXPECT_LT((trajectory.at(0).position - Eigen::Vector3d(841.782, -219.335, 1249.975)).norm(),
            1e-9);
}

}  // namespace
}  // namespace sim
