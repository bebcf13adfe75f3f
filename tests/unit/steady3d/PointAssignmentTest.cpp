#include <alg_factory/steady3d/PointAssignment.h>

#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace algorithm {
namespace {

using testing::ElementsAre;

StereoPoint point(std::int32_t id, double x, std::int32_t diameter = 8) {
  StereoPoint p;
  p.x = x;
  p.y = x + 1;
  p.z = x + 1000;
  p.leftX = 320;
  p.diameter = diameter;
  p.id = id;
  return p;
}

ObjectSightings sightingsOf(std::size_t objects) {
  ObjectSightings sightings;
  sightings.lastSeen.resize(objects);
  sightings.missCount.assign(objects, 0);
  return sightings;
}

MarkerPoints markersOf(std::size_t count) {
  MarkerPoints markers;
  markers.index.assign(count, 77);
  markers.position.resize(count);
  markers.diameter.resize(count);
  return markers;
}

std::vector<double> xs(const std::vector<StereoPoint>& points) {
  std::vector<double> result;
  for (const StereoPoint& p : points) result.push_back(p.x);
  return result;
}

TEST(NoteSightings, KeepsTheFirstPointOfEveryId) {
  ObjectSightings sightings = sightingsOf(3);
  noteSightings({point(2, 20), point(0, 10), point(2, 30), point(0, 40)}, sightings);
  EXPECT_EQ(sightings.lastSeen[0].x, 10);
  EXPECT_EQ(sightings.lastSeen[0].y, 11);
  EXPECT_EQ(sightings.lastSeen[0].z, 1010);
  EXPECT_EQ(sightings.lastSeen[0].id, 0);
  EXPECT_EQ(sightings.lastSeen[2].x, 20);
  EXPECT_EQ(sightings.lastSeen[2].id, 2);
  EXPECT_EQ(sightings.lastSeen[1].id, -1);
  EXPECT_THAT(sightings.missCount, ElementsAre(0, 1, 0));
}

TEST(NoteSightings, KeepsPositionAndIdOnly) {
  ObjectSightings sightings = sightingsOf(1);
  noteSightings({point(0, 10, 6)}, sightings);
  EXPECT_EQ(sightings.lastSeen[0].diameter, 0);
  EXPECT_EQ(sightings.lastSeen[0].leftX, 0);
}

TEST(NoteSightings, CountsTheFramesSinceAnObjectWasSeen) {
  ObjectSightings sightings = sightingsOf(2);
  noteSightings({point(0, 10)}, sightings);
  noteSightings({}, sightings);
  noteSightings({}, sightings);
  EXPECT_THAT(sightings.missCount, ElementsAre(2, 3));
  EXPECT_EQ(sightings.lastSeen[0].x, 10);
  EXPECT_EQ(sightings.lastSeen[0].id, 0);
  noteSightings({point(0, 11), point(1, 12)}, sightings);
  EXPECT_THAT(sightings.missCount, ElementsAre(0, 0));
  EXPECT_EQ(sightings.lastSeen[0].x, 11);
}

TEST(NoteSightings, IgnoresIdsWithoutAnObject) {
  ObjectSightings sightings = sightingsOf(1);
  noteSightings({point(1, 10), point(-1, 11)}, sightings);
  EXPECT_EQ(sightings.lastSeen[0].id, -1);
  EXPECT_THAT(sightings.missCount, ElementsAre(1));
}

TEST(NoteSightings, TheCountOfMissesStaysAtItsLargestValue) {
  ObjectSightings sightings = sightingsOf(1);
  sightings.missCount[0] = std::numeric_limits<std::int32_t>::max() - 1;
  noteSightings({}, sightings);
  noteSightings({}, sightings);
  EXPECT_EQ(sightings.missCount[0], std::numeric_limits<std::int32_t>::max());
}

TEST(HoldMissing, AppendsThePointsOfObjectsMissedForAtMostTheHold) {
  ObjectSightings sightings = sightingsOf(5);
  for (int i = 0; i < 4; ++i) sightings.lastSeen[static_cast<std::size_t>(i)] = point(i, 10.0 * i);
  sightings.missCount = {0, 1, 2, 3, 1};  // the last was never seen at all
  std::vector<StereoPoint> points = {point(0, 0)};
  holdMissing(2, sightings, points);
  EXPECT_THAT(xs(points), ElementsAre(0, 10, 20));
  EXPECT_EQ(points[1].id, 1);
}

TEST(HoldMissing, HoldsNothingWithoutAHold) {
  ObjectSightings sightings = sightingsOf(1);
  sightings.lastSeen[0] = point(0, 10);
  std::vector<StereoPoint> points;
  for (const std::int32_t misses : {0, 1, 2}) {
    sightings.missCount[0] = misses;
    holdMissing(0, sightings, points);
  }
  EXPECT_TRUE(points.empty());
}

TEST(ObjectsByMarker, ListsAnObjectForEachOfItsMarkers) {
  EXPECT_THAT(algorithm::objectsByMarker({1, 1, 2}), ElementsAre(0, 1, 2, 2));
  EXPECT_TRUE(algorithm::objectsByMarker({}).empty());
}

TEST(Distribute, TakesTheFirstPointOfEachObjectAndLeavesTheRestInOrder) {
  std::vector<StereoPoint> points = {point(1, 10), point(0, 20), point(1, 30), point(5, 40)};
  MarkerPoints markers = markersOf(3);
  distribute({0, 1, 2}, points, markers);
  EXPECT_THAT(markers.index, ElementsAre(0, 1, -1));
  EXPECT_EQ(markers.position[0].x, 20.0f);
  EXPECT_EQ(markers.position[0].y, 21.0f);
  EXPECT_EQ(markers.position[0].z, 1020.0f);
  EXPECT_EQ(markers.position[1].x, 10.0f);
  EXPECT_THAT(xs(points), ElementsAre(30, 40));
}

TEST(Distribute, AnObjectOfTwoMarkersTakesTheFirstTwoPointsInTheirOrder) {
  std::vector<StereoPoint> points = {point(2, 90, 6), point(0, 5), point(2, 10, 12), point(2, 50)};
  MarkerPoints markers = markersOf(4);
  distribute({0, 1, 2, 2}, points, markers);
  EXPECT_THAT(markers.index, ElementsAre(0, -1, 2, 2));
  EXPECT_EQ(markers.position[2].x, 90.0f);
  EXPECT_EQ(markers.position[3].x, 10.0f);
  EXPECT_EQ(markers.diameter[2], 6);
  EXPECT_EQ(markers.diameter[3], 12);
  EXPECT_THAT(xs(points), ElementsAre(50));
}

TEST(Distribute, OnePointOfTwoGoesToTheFirstMarker) {
  std::vector<StereoPoint> points = {point(2, 90)};
  MarkerPoints markers = markersOf(4);
  distribute({0, 1, 2, 2}, points, markers);
  EXPECT_THAT(markers.index, ElementsAre(-1, -1, 2, -1));
}

TEST(Distribute, AMarkerThatSeesNothingKeepsItsPosition) {
  MarkerPoints markers = markersOf(1);
  std::vector<StereoPoint> points = {point(0, 10)};
  distribute({0}, points, markers);
  distribute({0}, points, markers);
  EXPECT_THAT(markers.index, ElementsAre(-1));
  EXPECT_EQ(markers.position[0].x, 10.0f);
}

TEST(Distribute, NeverGoesBeyondTheMarkersThatWereSized) {
  MarkerPoints markers = markersOf(2);
  std::vector<StereoPoint> points = {point(0, 10), point(1, 20), point(2, 30)};
  distribute({0, 1, 2}, points, markers);
  EXPECT_THAT(markers.index, ElementsAre(0, 1));
  EXPECT_THAT(xs(points), ElementsAre(30));
}

}  // namespace
}  // namespace algorithm
