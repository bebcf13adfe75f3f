#include <alg_factory/stereo3d/EpipolarLines.h>

#include <cmath>
#include <iostream>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <tests/unit/stereo3d/FisheyePair.h>

namespace {

using algorithm::Blob2DPoint;
using algorithm::ImagePoint;
using algorithm::LineDirection;

struct ImageLine {
  double a, b, c;
};

/// The lines of the points, in their order.
void epipolarLines(const double (&fundamental)[9], LineDirection direction,
                   const std::vector<ImagePoint>& points, std::vector<ImageLine>& lines) {
  std::vector<Blob2DPoint> blobs;
  for (const ImagePoint& p : points) blobs.push_back(testing_support::blob(p.x, p.y, 4, 2));
  algorithm::drawEpipolarLines(fundamental, direction, blobs);
  lines.clear();
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    EXPECT_EQ(blobs[i].x, points[i].x);
    EXPECT_EQ(blobs[i].diameter, 4);
    EXPECT_EQ(blobs[i].id, 2);
    lines.push_back({blobs[i].aux[0], blobs[i].aux[1], blobs[i].aux[2]});
  }
}

constexpr double kF[9] = {1, -2, 3,  //
                          2, -3, 3,  //
                          5, 1,  -1};

TEST(EpipolarLines, LeftPointIsMultipliedByF) {
  // F (2, 1, 1) = (2 - 2 + 3, 4 - 3 + 3, 10 + 1 - 1) = (3, 4, 10), divided by sqrt(9 + 16).
  std::vector<ImageLine> lines;
  epipolarLines(kF, LineDirection::kLeftToRight, {{2, 1}}, lines);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_DOUBLE_EQ(lines[0].a, 0.6);
  EXPECT_DOUBLE_EQ(lines[0].b, 0.8);
  EXPECT_DOUBLE_EQ(lines[0].c, 2.0);
}

TEST(EpipolarLines, RightPointIsMultipliedByTheTransposeOfF) {
  // F^T (-29, 18, 1) = (-29 + 36 + 5, 58 - 54 + 1, -87 + 54 - 1) = (12, 5, -34), over 13.
  std::vector<ImageLine> lines;
  epipolarLines(kF, LineDirection::kRightToLeft, {{-29, 18}}, lines);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_DOUBLE_EQ(lines[0].a, 12.0 / 13);
  EXPECT_DOUBLE_EQ(lines[0].b, 5.0 / 13);
  EXPECT_DOUBLE_EQ(lines[0].c, -34.0 / 13);
}

TEST(EpipolarLines, LineWithoutDirectionIsNotDivided) {
  const double onlyC[9] = {0, 0, 0, 0, 0, 0, 1, 2, 3};
  std::vector<ImageLine> lines;
  epipolarLines(onlyC, LineDirection::kLeftToRight, {{1, 1}}, lines);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].a, 0);
  EXPECT_EQ(lines[0].b, 0);
  EXPECT_EQ(lines[0].c, 6);
}

TEST(EpipolarLines, EachBlobHasItsOwnWhetherTheirNumberIsOddOrEven) {
  const double rows[9] = {0, 0, 0, 0, 0, 1, 0, -1, 0};  // (x, y) gives the line y' = y
  std::vector<ImageLine> lines;
  epipolarLines(rows, LineDirection::kLeftToRight, {{9, 3}, {9, 4}}, lines);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].c, -3);
  EXPECT_EQ(lines[1].c, -4);

  epipolarLines(rows, LineDirection::kLeftToRight, {{9, 3}, {9, 4}, {1, 5}}, lines);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1].c, -4);
  EXPECT_EQ(lines[2].c, -5);

  epipolarLines(rows, LineDirection::kLeftToRight, {}, lines);
  EXPECT_TRUE(lines.empty());
}

TEST(EpipolarLines, PassThroughThePartnerAndAreNormalised) {
  constexpr unsigned kSeed = 777;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> across(-600, 600), depth(300, 3500);
  const auto pair = testing_support::unlikePair();
  const auto calibration = pair.calibration();
  for (int i = 0; i < 200; ++i) {
    const Eigen::Vector3d p(across(random), across(random), depth(random));
    const ImagePoint l = pair.left.pinhole(pair.inLeftFrame(p));
    const ImagePoint r = pair.right.pinhole(p);
    std::vector<ImageLine> inRight, inLeft;
    epipolarLines(calibration.fundamental, LineDirection::kLeftToRight, {l}, inRight);
    epipolarLines(calibration.fundamental, LineDirection::kRightToLeft, {r}, inLeft);
    EXPECT_NEAR(std::hypot(inRight[0].a, inRight[0].b), 1, 1e-14);
    EXPECT_NEAR(std::hypot(inLeft[0].a, inLeft[0].b), 1, 1e-14);
    EXPECT_NEAR(inRight[0].a * r.x + inRight[0].b * r.y + inRight[0].c, 0, 1e-9);
    EXPECT_NEAR(inLeft[0].a * l.x + inLeft[0].b * l.y + inLeft[0].c, 0, 1e-9);
  }
}

}  // namespace
