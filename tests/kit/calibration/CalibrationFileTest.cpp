#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationJson.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/calibration/KalibrFile.h>
#include <alg_kit/rig/StereoRig.h>
#include <alg_kit/text/TextFile.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tests/support/HandRig.h>
#include <tests/support/ScratchFolder.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

using algorithm::StereoCalibration;
using calibration::LensModel;
using calibration::LoadedCalibration;
using calibration::readCalibration;
using ::testing::HasSubstr;
using ::testing::Not;

/// Files that OpenCV 4.6 wrote; the numbers are those that its matrices were given.
const std::string kOpenCv = ALG_OPENCV_FILES "/";

class CalibrationFiles : public testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& content) const {
    return folder_.write(name, content);
  }

  /// The message, which must be one line that begins with the file.
  static std::string errorOf(const std::vector<std::string>& paths) {
    try {
      const LoadedCalibration loaded = readCalibration(paths);
      calibration::requireUsable(loaded, paths[0]);
    } catch (const text::FileError& error) {
      const std::string text = error.what();
      EXPECT_EQ(text.find('\n'), std::string::npos) << text;
      return text;
    }
    return "no error";
  }
  std::string errorOfContent(const std::string& content) const {
    const std::string path = write("file", content);
    const std::string text = errorOf({path});
    EXPECT_TRUE(text == "no error" || text.find(path) == 0) << text;
    return text;
  }

 private:
  ScratchFolder folder_;
};

std::string kalibr(const std::string& model, const std::string& firstIntrinsic = "381.2") {
  return "cam0:\n  camera_model: pinhole\n  distortion_model: " + model +
         "\n  distortion_coeffs: [0.02, -0.006, 0.002, -0.0005]\n  intrinsics: [" + firstIntrinsic +
         ", 380.7, 321.5, 238.4]\n  resolution: [640, 480]\n"
         "cam1:\n  camera_model: pinhole\n  distortion_model: " +
         model +
         "\n  distortion_coeffs: [0.02, -0.006, 0.002, -0.0005]\n"
         "  intrinsics: [381.2, 380.7, 321.5, 238.4]\n  resolution: [640, 480]\n"
         "  T_cn_cnm1:\n  - [1.0, 0.0, 0.0, -0.1]\n  - [0.0, 1.0, 0.0, 0.0]\n"
         "  - [0.0, 0.0, 1.0, 0.0]\n  - [0.0, 0.0, 0.0, 1.0]\n";
}

void expectSame(const StereoCalibration& a, const StereoCalibration& b) {
  EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

void expectTheNumbersGivenToOpenCv(const StereoCalibration& c) {
  const double left[9] = {381.2, 0, 321.5, 0, 380.7, 238.4, 0, 0, 1};
  const double right[9] = {379.6, 0, 317.8, 0, 379.9, 241.9, 0, 0, 1};
  const double leftDistortion[8] = {0.021, -0.0064, 0.0018, -0.0005};
  const double rightDistortion[8] = {0.018, -0.0051, 0.0009, -0.0002};
  const double sine = std::sin(0.035), cosine = std::cos(0.035);
  const double rotation[9] = {cosine, 0, sine, 0, 1, 0, -sine, 0, cosine};
  const double translation[3] = {-100.3, 0.8, -1.6};
  for (int i = 0; i < 9; ++i) {
    EXPECT_DOUBLE_EQ(c.leftIntrinsics[i], left[i]);
    EXPECT_DOUBLE_EQ(c.rightIntrinsics[i], right[i]);
    EXPECT_DOUBLE_EQ(c.rotation[i], rotation[i]);
  }
  for (int i = 0; i < 8; ++i) {
    EXPECT_DOUBLE_EQ(c.leftDistortion[i], leftDistortion[i]);
    EXPECT_DOUBLE_EQ(c.rightDistortion[i], rightDistortion[i]);
  }
  for (int i = 0; i < 3; ++i) EXPECT_DOUBLE_EQ(c.translation[i], translation[i]);
}

TEST_F(CalibrationFiles, RefusesBracketsWithoutEndInJson) {
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  for (const char* const member : {"version", "unit", "left"}) {
    const std::string text =
        errorOfContent(std::string("{\"format\": \"alg_factory stereo calibration\", \"") + member +
                       "\": " + deep + "}");
    EXPECT_THAT(text, HasSubstr("expected at most 32 brackets inside each other, found more"));
  }
  const std::string shallow =
      errorOfContent("{\"format\": \"alg_factory stereo calibration\", \"version\": [[[1]]]}");
  EXPECT_THAT(shallow, HasSubstr("expected version 1, found a list"));
}

TEST_F(CalibrationFiles, RefusesAFileThatIsTooLarge) {
  EXPECT_THAT(errorOfContent(std::string(600 * 1024, '#')), HasSubstr("of at most 524288 bytes"));
}

TEST_F(CalibrationFiles, ReadsOpenCvsYaml) {
  const auto loaded = readCalibration({kOpenCv + "stereo_fisheye.yml"}, "m");
  expectTheNumbersGivenToOpenCv(loaded.calibration);
  EXPECT_EQ(loaded.unit, "mm");
  EXPECT_EQ(loaded.width, 640);
  EXPECT_EQ(loaded.height, 480);
}

TEST_F(CalibrationFiles, ReadsOpenCvsJson) {
  expectTheNumbersGivenToOpenCv(
      readCalibration({kOpenCv + "stereo_fisheye.json"}, "m").calibration);
}

TEST_F(CalibrationFiles, ReadsOpenCvsIntrinsicsAndExtrinsicsInAnyOrder) {
  const std::string in = kOpenCv + "intrinsics.yml", ex = kOpenCv + "extrinsics.yml";
  expectTheNumbersGivenToOpenCv(readCalibration({in, ex}, "m").calibration);
  expectTheNumbersGivenToOpenCv(readCalibration({ex, in}, "m").calibration);
}

TEST_F(CalibrationFiles, AsksForTheSecondOpenCvFile) {
  EXPECT_THAT(errorOf({kOpenCv + "intrinsics.yml"}), HasSubstr("matrix R, found none"));
  EXPECT_THAT(errorOf({kOpenCv + "extrinsics.yml"}), HasSubstr("K1 or M1"));
}

TEST_F(CalibrationFiles, RefusesOpenCvsFiveCoefficients) {
  EXPECT_THAT(errorOf({kOpenCv + "intrinsics_radtan.yml", kOpenCv + "extrinsics.yml"}),
              HasSubstr("found '5 coefficients' for the left camera"));
}

TEST_F(CalibrationFiles, RefusesToGuessTheUnitOfOpenCvsTranslation) {
  EXPECT_THAT(errorOf({kOpenCv + "stereo_fisheye.yml"}),
              HasSubstr("its baseline is 0.100316): say --unit"));
}

TEST_F(CalibrationFiles, ReadsKalibrsChainAsMetres) {
  const auto loaded = readCalibration({write("chain.yaml", kalibr("equidistant"))});
  EXPECT_DOUBLE_EQ(loaded.calibration.translation[0], -100);
  EXPECT_EQ(loaded.unit, "mm");
  EXPECT_EQ(loaded.left.model, LensModel::kEquidistant);
  EXPECT_EQ(loaded.width, 640);
}

TEST_F(CalibrationFiles, LetsTheCallerContradictKalibrsUnit) {
  const auto loaded = readCalibration({write("chain.yaml", kalibr("equidistant"))}, "cm");
  EXPECT_DOUBLE_EQ(loaded.calibration.translation[0], -1);
}

TEST_F(CalibrationFiles, ReadsTheMeasuredRigFromBothFormatsAlike) {
  const std::string chain = ALG_TEST_DATA "/tum_vi_camchain.yaml";
  const std::string stereo = ALG_TEST_DATA "/tum_vi_stereo_opencv.yml";
  if (!std::filesystem::exists(chain) || !std::filesystem::exists(stereo))
    GTEST_SKIP() << "no measured calibration";
  const auto a = readCalibration({chain}).calibration;
  const auto b = readCalibration({stereo}, "m").calibration;
  expectSame(a, calibration::readKalibrCameraChain(chain).calibration);
  for (int i = 0; i < 9; ++i) {
    EXPECT_NEAR(a.leftIntrinsics[i], b.leftIntrinsics[i], 1e-9);
    EXPECT_NEAR(a.rotation[i], b.rotation[i], 1e-12);
  }
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(a.translation[i], b.translation[i], 1e-9);
}

TEST_F(CalibrationFiles, WritesAndReadsTheRecordBitForBit) {
  StereoCalibration c = rig::builtInRig().calibration;
  c.lead = 1.25;
  c.tail[58] = -7;
  const std::string bytes = calibration::recordBytes(c);
  ASSERT_EQ(bytes.size(), 920u);
  // Little-endian: 1.25 is 0x3FF4000000000000.
  EXPECT_EQ(bytes.substr(0, 8), std::string("\0\0\0\0\0\0\xF4\x3F", 8));
  const auto loaded = readCalibration({write("rig.bin", bytes)});
  expectSame(loaded.calibration, c);
  EXPECT_EQ(loaded.unit, "mm");
}

TEST_F(CalibrationFiles, WritesAndReadsJsonBitForBit) {
  const StereoCalibration c = rig::builtInRig().calibration;
  const std::string json = calibration::toJson(c, "mm", 640, 480).dump(2);
  const auto loaded = readCalibration({write("rig.json", json)});
  expectSame(loaded.calibration, c);
  EXPECT_EQ(loaded.unit, "mm");
  EXPECT_EQ(loaded.width, 640);
}

TEST_F(CalibrationFiles, ConvertsTheUnitThatJsonStates) {
  StereoCalibration c = testing_support::handCalibration(0.5);
  const auto loaded =
      readCalibration({write("rig.json", calibration::toJson(c, "in", 0, 0).dump())});
  EXPECT_DOUBLE_EQ(loaded.calibration.translation[0], -12.7);
  EXPECT_EQ(loaded.width, 0);
}

TEST_F(CalibrationFiles, SwapsTheCamerasBackAndForth) {
  const StereoCalibration c = rig::builtInRig().calibration;
  const StereoCalibration swapped = calibration::withCamerasSwapped(c);
  EXPECT_EQ(swapped.leftIntrinsics[0], c.rightIntrinsics[0]);
  EXPECT_EQ(swapped.rightDistortion[2], c.leftDistortion[2]);
  // A point keeps its place in either frame.
  const Eigen::Vector3d p_L(120, -40, 900);
  EXPECT_LT((rig::rightToLeft(c, rig::leftToRight(c, p_L)) - p_L).norm(), 1e-9);
  EXPECT_LT((rig::rightToLeft(swapped, p_L) - rig::leftToRight(c, p_L)).norm(), 1e-9);
  const StereoCalibration back = calibration::withCamerasSwapped(swapped);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(back.translation[i], c.translation[i], 1e-12);
}

TEST_F(CalibrationFiles, NamesTheLensModelOfARadtanChain) {
  const std::string path = write("chain.yaml", kalibr("radtan"));
  EXPECT_EQ(readCalibration({path}).right.model, LensModel::kRadialTangential);
  EXPECT_THAT(errorOf({path}), HasSubstr("found 'radtan' for the left camera"));
}

TEST_F(CalibrationFiles, RefusesWhatIsNoCalibrationInOneLine) {
  EXPECT_THAT(errorOf({"/nowhere/rig.yaml"}), HasSubstr("found no such file"));
  EXPECT_THAT(errorOf({"/"}), HasSubstr("found a directory"));
  EXPECT_THAT(errorOfContent(""), HasSubstr("found an empty file"));
  EXPECT_THAT(errorOfContent("hello: world\n"), HasSubstr("found something else"));
  EXPECT_THAT(errorOfContent(" \n\n"), HasSubstr("found something else"));
  EXPECT_THAT(errorOfContent("{\"a\": 1}"), HasSubstr("found other JSON"));
  EXPECT_THAT(errorOfContent("{\"a\": "), HasSubstr("expected JSON, found an error"));
  EXPECT_THAT(errorOfContent("[1, 2"), HasSubstr("found something else"));
  EXPECT_THAT(errorOfContent("%YAML:1.0\n---\nK1: [1, 2\n"), HasSubstr("expected YAML"));
  EXPECT_THAT(errorOfContent("%YAML:1.0\n---\n- 1\n"), HasSubstr("found none"));
  EXPECT_THAT(errorOfContent("<?xml version=\"1.0\"?>"), HasSubstr("found XML"));
  EXPECT_THAT(errorOfContent(std::string("SQLite format 3\0", 16)),
              HasSubstr("found a recording, or another database"));
  EXPECT_THAT(errorOfContent(std::string("\0\1\2", 3)), HasSubstr("920 bytes"));
  EXPECT_THAT(errorOfContent(std::string(919, '\0')), HasSubstr("found 919"));
  EXPECT_THAT(errorOfContent(std::string(920, '\0')), HasSubstr("positive focal lengths"));
  EXPECT_THAT(errorOfContent(kalibr("equidistant", ".nan")), HasSubstr("finite number"));
  EXPECT_THAT(errorOfContent(kalibr("equidistant", "1, 2")), HasSubstr("4 numbers"));
}

TEST_F(CalibrationFiles, RefusesRecordsWhoseNumbersAreNone) {
  const auto errorWith = [&](auto change) {
    StereoCalibration c = rig::builtInRig().calibration;
    change(c);
    return errorOfContent(calibration::recordBytes(c));
  };
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(errorWith([](auto& c) { c.leftIntrinsics[2] = kNan; }), HasSubstr("left camera"));
  EXPECT_THAT(errorWith([](auto& c) { c.rightIntrinsics[4] = -1; }), HasSubstr("focal"));
  EXPECT_THAT(errorWith([](auto& c) { c.rotation[8] = kNan; }), HasSubstr("rotation"));
  EXPECT_THAT(errorWith([](auto& c) { c.fundamental[0] = INFINITY; }), HasSubstr("fundamental"));
  EXPECT_THAT(errorWith([](auto& c) { c.rightDistortion[0] = kNan; }), HasSubstr("distortion"));
  EXPECT_THAT(errorWith([](auto& c) { std::fill_n(c.translation, 3, 0.0); }),
              HasSubstr("both in one place"));
  EXPECT_EQ(errorWith([](auto& c) { c.tail[3] = kNan; }), "no error") << "not read by the library";
}

// Products of such numbers overflow, and what is written of them is no number.
TEST_F(CalibrationFiles, RefusesNumbersThatNoRigHasInEveryFormat) {
  const char* const kRefusal = "of at most 1e9";
  for (const double number : {1.1e9, -1e10, 1e307}) {
    std::ostringstream text;
    text << std::abs(number);
    EXPECT_THAT(errorOfContent(kalibr("equidistant", text.str())), HasSubstr(kRefusal));
    for (const std::size_t at : {0, 3, 10, 20, 27, 36, 44, 50}) {
      double numbers[115];
      const StereoCalibration builtIn = rig::builtInRig().calibration;
      std::memcpy(numbers, &builtIn, sizeof numbers);
      numbers[at] = number;
      EXPECT_THAT(errorOfContent({reinterpret_cast<const char*>(numbers), sizeof numbers}),
                  HasSubstr(kRefusal))
          << at;
    }
    auto json = calibration::toJson(rig::builtInRig().calibration, "mm", 640, 480);
    json["translation"][0] = number;
    EXPECT_THAT(errorOfContent(json.dump()), HasSubstr(kRefusal));
  }
  EXPECT_EQ(errorOfContent(kalibr("equidistant", "9e8")), "no error");
}

TEST_F(CalibrationFiles, RefusesOpenCvMatricesOfAnotherShape) {
  std::ifstream file(kOpenCv + "stereo_fisheye.yml");
  const std::string good{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const auto errorWith = [&](const std::string& from, const std::string& to) {
    std::string text = good;
    const auto at = text.find(from);
    EXPECT_NE(at, std::string::npos);
    return errorOfContent(text.replace(at, from.size(), to));
  };
  EXPECT_THAT(errorWith("rows: 3", "rows: 2"), HasSubstr("another count"));
  EXPECT_THAT(errorWith("rows: 3", "rows: many"), HasSubstr("another count"));
  EXPECT_THAT(errorWith("3.8119999999999999e+02", ".Nan"), HasSubstr("finite number in K1"));
  EXPECT_THAT(errorWith("3.8119999999999999e+02", "-1"), HasSubstr("positive focal"));
  EXPECT_THAT(errorWith("image_width: 640", "image_width: 0"), HasSubstr("pixels"));
  EXPECT_THAT(errorWith("D1: !!", "D9: !!"), HasSubstr("matrix D1 or distCoeffs1, found none"));
  EXPECT_THAT(errorWith("R: !!opencv-matrix\n   rows: 3\n   cols: 3",
                        "R: !!opencv-matrix\n   rows: 1\n   cols: 9"),
              HasSubstr("3 x 3 numbers in R, found 1 x 9"));
}

TEST_F(CalibrationFiles, RefusesJsonWithWrongMembers) {
  using Json = nlohmann::ordered_json;
  const auto errorWith = [&](auto change) {
    Json json = calibration::toJson(rig::builtInRig().calibration, "mm", 640, 480);
    change(json);
    return errorOfContent(json.dump());
  };
  EXPECT_THAT(errorWith([](Json& j) { j["version"] = 2; }), HasSubstr("version 1, found 2"));
  EXPECT_THAT(errorWith([](Json& j) { j.erase("left"); }), HasSubstr("the member left"));
  EXPECT_THAT(errorWith([](Json& j) { j["unit"] = "furlong"; }), HasSubstr("'furlong'"));
  EXPECT_THAT(errorWith([](Json& j) { j["unit"] = nullptr; }), HasSubstr("say --unit"));
  EXPECT_THAT(errorWith([](Json& j) { j["rotation"][1][1] = nullptr; }), HasSubstr("found null"));
  EXPECT_THAT(errorWith([](Json& j) { j["rotation"].erase(2); }), HasSubstr("3 rows"));
  EXPECT_THAT(errorWith([](Json& j) { j["left"]["distortion"].erase(3); }), HasSubstr("4 numbers"));
  EXPECT_THAT(errorWith([](Json& j) { j["left"]["distortionModel"] = "radtan"; }),
              HasSubstr("'radtan'"));
  EXPECT_THAT(errorWith([](Json& j) { j["image"]["width"] = 1.5; }), HasSubstr("pixels"));
}

}  // namespace
