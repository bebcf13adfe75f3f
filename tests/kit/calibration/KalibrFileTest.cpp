#include <alg_kit/calibration/KalibrFile.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <tests/support/TestFiles.h>

namespace calibration {
namespace {

using testing::HasSubstr;
using testing_support::measuredFile;
using testing_support::messageOf;
using testing_support::TemporaryFile;

// The two ways in which the pair's transform can be written; they say the same. cam1 is turned by a
// quarter about its z axis: (x, y, z) of cam0 is (-y, x, z) of cam1, less 0.1 m in x.
const std::string kChainTransform = R"(  T_cn_cnm1:
  - [0.0, -1.0, 0.0, -0.1]
  - [1.0, 0.0, 0.0, 0.02]
  - [0.0, 0.0, 1.0, 0.003]
  - [0.0, 0.0, 0.0, 1.0]
)";
const std::string kLeftImu = R"(  T_cam_imu:
  - [1.0, 0.0, 0.0, 1.0]
  - [0.0, 1.0, 0.0, 2.0]
  - [0.0, 0.0, 1.0, 3.0]
  - [0.0, 0.0, 0.0, 1.0]
)";
const std::string kRightImu = R"(  T_cam_imu:
  - [0.0, -1.0, 0.0, -2.1]
  - [1.0, 0.0, 0.0, 1.02]
  - [0.0, 0.0, 1.0, 3.003]
  - [0.0, 0.0, 0.0, 1.0]
)";

std::string camera(const std::string& name, const std::string& transform, int fx) {
  return name + ":\n" + transform + R"(  camera_model: pinhole
  distortion_coeffs: [0.01, -0.002, 0.0003, -0.00004]
  distortion_model: equidistant
  intrinsics: [)" +
         std::to_string(fx) +
         R"(, 191.0, 255.0, 257.0]
  resolution: [512, 480]
)";
}

std::string chain() {
  return camera("cam0", "", 190) + camera("cam1", kChainTransform, 192);
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto position = text.rfind(from);
  EXPECT_NE(position, std::string::npos) << from;
  return text.replace(position, from.size(), to);
}

TEST(KalibrFile, ReadsBothCamerasAndTheChainTransformInMillimetres) {
  const TemporaryFile file(chain());
  const rig::StereoRig rig = readKalibrCameraChain(file.path());
  EXPECT_EQ(rig.width, 512);
  EXPECT_EQ(rig.height, 480);
  const auto& c = rig.calibration;
  EXPECT_EQ(c.leftIntrinsics[0], 190);
  EXPECT_EQ(c.rightIntrinsics[0], 192);
  EXPECT_EQ(c.rightIntrinsics[4], 191);
  EXPECT_EQ(c.leftIntrinsics[2], 255);
  EXPECT_EQ(c.leftIntrinsics[5], 257);
  EXPECT_EQ(c.leftIntrinsics[8], 1);
  EXPECT_EQ(c.leftDistortion[1], -0.002);
  EXPECT_EQ(c.rightDistortion[3], -0.00004);
  EXPECT_EQ(c.rotation[1], -1);
  EXPECT_EQ(c.rotation[3], 1);
  EXPECT_NEAR(c.translation[0], -100, 1e-12);
  EXPECT_NEAR(c.translation[1], 20, 1e-12);
  EXPECT_NEAR(c.translation[2], 3, 1e-12);
  EXPECT_EQ(rig::matrixFrom(c.fundamental), rig::fundamentalFrom(c));
}

TEST(KalibrFile, TransformsToTheInertialSensorGiveTheSamePair) {
  const TemporaryFile direct(chain());
  const TemporaryFile viaImu(camera("cam0", kLeftImu, 190) + camera("cam1", kRightImu, 192));
  const auto a = readKalibrCameraChain(direct.path()).calibration;
  const auto b = readKalibrCameraChain(viaImu.path()).calibration;
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(a.rotation[i], b.rotation[i], 1e-12);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(a.translation[i], b.translation[i], 1e-9);
}

TEST(KalibrFile, ErrorsNameFileLineAndProblem) {
  struct Case {
    std::string content, line, problem;
  };
  const std::string good = chain();
  const std::vector<Case> cases = {
      {"", ": ", "expected a Kalibr camera chain, found an empty file"},
      {"just a word\n", ":1: ", "expected a map with cam0 and cam1"},
      {"cam0: [1, 2\n", ":", "expected YAML, found an error"},
      {camera("cam0", "", 190), ":1: ", "expected cam1 in the top level, found none"},
      {"cam0: 3\ncam1: 4\n", ":1: ", "expected a map under cam0"},
      {replaced(good, "equidistant", "radtan"), ":",
       "expected distortion_model equidistant in cam1, found 'radtan'"},
      {replaced(good, "pinhole", "omni"), ":",
       "expected camera_model pinhole in cam1, found 'omni'"},
      {replaced(good, "  intrinsics: [192, 191.0, 255.0, 257.0]\n", ""), ":",
       "expected intrinsics in cam1, found none"},
      {replaced(good, "191.0, 255.0, 257.0", "191.0, 255.0"), ":",
       "expected 4 numbers in cam1 intrinsics, found 3"},
      {replaced(good, "[192, 191.0", "[-192, 191.0"), ":",
       "expected positive focal lengths in cam1"},
      {replaced(good, "[0.01, ", "[.nan, "), ":",
       "expected a finite number in cam1 distortion_coeffs, found '.nan'"},
      {replaced(good, "[0.01, ", "[.inf, "), ":", "found '.inf'"},
      {replaced(good, "[0.01, ", "[ten, "), ":", "found 'ten'"},
      {replaced(good, "[0.01, ", "[[1], "), ":", "found a list"},
      {replaced(good, ", -0.00004]", ", -0.00004, 0.0]"), ":",
       "expected 4 numbers in cam1 distortion_coeffs, found 5"},
      {replaced(good, "[512, 480]", "[512.5, 480]"), ":", "expected whole numbers of pixels"},
      {replaced(good, "[512, 480]", "[512, 0]"), ":", "expected whole numbers of pixels"},
      {replaced(good, "[512, 480]", "[640, 480]"), ":", "expected the resolution of cam0"},
      {replaced(good, kChainTransform, ""), ":",
       "expected T_cn_cnm1 in cam1 or T_cam_imu in both cameras"},
      {replaced(good, "  - [0.0, 0.0, 0.0, 1.0]\n", ""), ":",
       "expected 4 rows in cam1 T_cn_cnm1, found 3"},
      {replaced(good, "[1.0, 0.0, 0.0, 0.02]", "[1.0, 0.0, 0.02]"),
       ":10: ", "expected 4 numbers in row 2 of cam1 T_cn_cnm1, found 3"},
      {replaced(good, "[1.0, 0.0, 0.0, 0.02]", "[1.1, 0.0, 0.0, 0.02]"), ":",
       "expected a rotation in cam1 T_cn_cnm1"},
      {replaced(good, "[1.0, 0.0, 0.0, 0.02]", "[-1.0, 0.0, 0.0, 0.02]"), ":",
       "expected a rotation in cam1 T_cn_cnm1"},
      {replaced(good, "[0.0, 0.0, 0.0, 1.0]", "[0.0, 0.0, 1.0, 1.0]"), ":",
       "expected 0 0 0 1 as the last row"},
      {camera("cam0", kLeftImu, 190) + camera("cam1", kLeftImu, 192), ":",
       "expected cameras apart"},
  };
  for (const Case& bad : cases) {
    SCOPED_TRACE(bad.problem);
    const TemporaryFile file(bad.content);
    const std::string message = messageOf([&] { readKalibrCameraChain(file.path()); });
    EXPECT_THAT(message, HasSubstr(file.path() + bad.line));
    EXPECT_THAT(message, HasSubstr(bad.problem));
  }
}

TEST(KalibrFile, LineIsThatOfTheOffendingEntry) {
  // cam0 takes lines 1 to 6; cam1 begins at 7, its transform's first row stands in line 9.
  const TemporaryFile file(replaced(chain(), "[0.0, -1.0, 0.0, -0.1]", "[0.0, x, 0.0, -0.1]"));
  EXPECT_THAT(messageOf([&] { readKalibrCameraChain(file.path()); }),
              HasSubstr(file.path() + ":9: expected a finite number in row 1"));
}

TEST(KalibrFile, MissingFileAndDirectoryAreNamed) {
  EXPECT_THAT(messageOf([] { readKalibrCameraChain("no/such/chain.yaml"); }),
              HasSubstr("no/such/chain.yaml: expected a Kalibr camera chain, found no such file"));
  const std::string folder = std::filesystem::temp_directory_path().string();
  EXPECT_THAT(messageOf([&] { readKalibrCameraChain(folder); }), HasSubstr("found a directory"));
}

TEST(KalibrFile, RandomBytesAreRefused) {
  const TemporaryFile file(std::string("\x00\xff\xfe{[*&!|>%@`\x01", 13));
  EXPECT_THAT(messageOf([&] { readKalibrCameraChain(file.path()); }), HasSubstr(file.path()));
}

// The numbers of `data: [ ... ]` after `key:` in an OpenCV storage file.
std::vector<double> openCvMatrix(const std::string& text, const std::string& key) {
  const auto data = text.find("data: [", text.find("\n" + key + ":"));
  const auto begin = data + 7;
  std::string list = text.substr(begin, text.find(']', begin) - begin);
  for (char& c : list)
    if (c == ',') c = ' ';
  std::istringstream stream(list);
  return {std::istream_iterator<double>(stream), std::istream_iterator<double>()};
}

TEST(KalibrFile, MeasuredPairAgreesWithItsOpenCvForm) {
  const std::string chainPath = measuredFile("tum_vi_camchain.yaml");
  const std::string openCvPath = measuredFile("tum_vi_stereo_opencv.yml");
  if (chainPath.empty() || openCvPath.empty()) GTEST_SKIP() << "no measured calibration here";
  const rig::StereoRig rig = readKalibrCameraChain(chainPath);
  const std::string text = text::readTextFile(openCvPath, "a calibration");
  const auto& c = rig.calibration;

  EXPECT_EQ(rig.width, 512);
  const auto R = openCvMatrix(text, "R");
  const auto T = openCvMatrix(text, "T");
  const auto F = openCvMatrix(text, "F");
  const auto K2 = openCvMatrix(text, "K2");
  const auto D1 = openCvMatrix(text, "D1");
  ASSERT_EQ(R.size(), 9u);
  ASSERT_EQ(T.size(), 3u);
  ASSERT_EQ(F.size(), 9u);
  ASSERT_EQ(K2.size(), 9u);
  ASSERT_EQ(D1.size(), 4u);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(c.rotation[i], R[i], 1e-9);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(c.translation[i], 1000 * T[i], 1e-6);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(c.rightIntrinsics[i], K2[i], 1e-12);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(c.leftDistortion[i], D1[i], 1e-15);
  const double scale = c.fundamental[8] / F[8];  // F is free up to a factor
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(c.fundamental[i], scale * F[i], 1e-9);
}

}  // namespace
}  // namespace calibration
