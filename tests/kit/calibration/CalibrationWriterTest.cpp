#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationWriter.h>
#include <alg_kit/rig/RigError.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace calibration {
namespace {

/// A calibration with no round number in it.
algorithm::StereoCalibration anyCalibration(unsigned seed) {
  sim::Random random(seed);
  rig::RigError error;
  error.rotation = {random.normal(), random.normal(), random.normal()};
  error.translation = {0, random.normal(), random.normal()};
  error.focal = {random.normal(), random.normal()};
  error.leftCentre = {random.normal(), random.normal()};
  error.rightCentre = {random.normal(), random.normal()};
  auto c = rig::withError(rig::builtInRig().calibration, error);
  for (int i = 0; i < 4; ++i) c.leftDistortion[i] *= random.uniform(0.9, 1.1);
  for (double& t : c.translation) t *= random.uniform(0.5, 3);
  recomputeFundamental(c);
  return c;
}

LoadedCalibration readBack(const std::string& text, const std::string& ending) {
  const auto path =
      std::filesystem::temp_directory_path() /
      ("calibration_writer_test_" +
       std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ending);
  std::ofstream(path) << text;
  const auto loaded = readCalibration({path.string()});
  std::filesystem::remove(path);
  return loaded;
}

void expectTheSameBits(const algorithm::StereoCalibration& a,
                       const algorithm::StereoCalibration& b) {
  EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

TEST(CalibrationWriter, OpenCvFilesComeBackWithEveryBitAndTheirUnit) {
  for (unsigned seed = 1; seed <= 50; ++seed) {
    const auto c = anyCalibration(seed);
    const auto loaded = readBack(openCvText({c, "mm", 640, 480}), ".yml");
    expectTheSameBits(loaded.calibration, c);
    EXPECT_EQ(unitOfFile(loaded), "mm (stated in it)");
    EXPECT_EQ(loaded.width, 640);
    EXPECT_EQ(loaded.height, 480);
  }
}

TEST(CalibrationWriter, KalibrFilesComeBackWithEveryBitAlthoughTheyAreInMetres) {
  for (unsigned seed = 1; seed <= 50; ++seed) {
    const auto c = anyCalibration(seed);
    const auto loaded = readBack(kalibrText({c, "mm", 640, 480}), ".yaml");
    expectTheSameBits(loaded.calibration, c);
    EXPECT_EQ(unitOfFile(loaded), "m (of this format)");
  }
}

TEST(CalibrationWriter, OpenCvsEssentialMatrixIsTheProductThatItShouldBe) {
  // T = (-100, 0, 0) and R = 1: [T]x has its only entries at (2,3) and (3,2).
  const auto c = rig::makeCalibration({400, 400, 320, 240}, {0, 0, 0, 0}, {400, 400, 320, 240},
                                      {0, 0, 0, 0}, Eigen::Matrix3d::Identity(), {-100, 0, 0});
  const std::string text = openCvText({c, "mm", 0, 0});
  const std::size_t at = text.find("\nE:");
  ASSERT_NE(at, std::string::npos);
  const std::string data = text.substr(text.find('[', at));
  double e[9];
  ASSERT_EQ(std::sscanf(data.c_str(), "[%lf, %lf, %lf, %lf, %lf, %lf, %lf, %lf, %lf]", e, e + 1,
                        e + 2, e + 3, e + 4, e + 5, e + 6, e + 7, e + 8),
            9);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(e[i], i == 5 ? 100 : i == 7 ? -100 : 0) << i;
}

TEST(CalibrationWriter, ACameraChainNeedsAnImageSizeAndNoSkew) {
  auto c = rig::builtInRig().calibration;
  EXPECT_THROW(kalibrText({c, "mm", 0, 0}), std::invalid_argument);
  c.leftIntrinsics[1] = 0.5;
  EXPECT_THROW(kalibrText({c, "mm", 640, 480}), std::invalid_argument);
}

TEST(ShiftedText, MovesThePointWithoutRounding) {
  double value = 0;
  for (const double number : {-100.3, 0.1, 1.0 / 3, -1e-9, 123456.789, 0.0}) {
    ASSERT_TRUE(readShifted(shiftedText(number, -3), 3, value));
    EXPECT_EQ(value, number);
  }
  EXPECT_TRUE(readShifted("0.125", 3, value));
  EXPECT_EQ(value, 125);
  EXPECT_TRUE(readShifted("+1E+2", -1, value));
  EXPECT_EQ(value, 10);
  for (const char* const bad : {"", "nan", ".inf", "1e", "e5", "1x", "0x10", "1e99999999999"})
    EXPECT_FALSE(readShifted(bad, 3, value)) << bad;
}

}  // namespace
}  // namespace calibration
