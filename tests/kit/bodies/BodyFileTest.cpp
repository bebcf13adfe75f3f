#include <alg_kit/bodies/BodyFile.h>

#include <alg_kit/text/TextFile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using bodies::Body;
using testing::HasSubstr;

const std::string kGood = R"({"format": "alg_factory body", "version": 1, "name": "tool",
"unit": "mm", "markers": [{"id": 0, "position": [0, 0, 0]}, {"id": 2, "position": [10, 0, 0]},
{"id": 3, "position": [0, 20, 0], "deviation": [0.1, 0.2, 0.3]}], "pivot": [1, 2, 3]})";

std::string errorWith(const std::string& what, const std::string& instead) {
  std::string text = kGood;
  text.replace(text.find(what), what.size(), instead);
  try {
    bodies::bodyFromText(text, "tool.json");
  } catch (const text::FileError& error) {
    return error.what();
  }
  return "";
}

TEST(BodyFile, IsReadByName) {
  const Body body = bodies::bodyFromText(kGood, "tool.json");
  EXPECT_EQ(body.name, "tool");
  ASSERT_EQ(body.markers.size(), 3u);
  EXPECT_EQ(body.markerOf(2)->position, Eigen::Vector3d(10, 0, 0));
  EXPECT_EQ(body.markerOf(3)->deviation, Eigen::Vector3d(0.1, 0.2, 0.3));
  EXPECT_EQ(body.markerOf(1), nullptr);
  EXPECT_EQ(body.pivot, Eigen::Vector3d(1, 2, 3));
}

TEST(BodyFile, KeepsEveryBit) {
  Body body = bodies::bodyFromText(kGood, "tool.json");
  body.markers[0].position = {1.0 / 3, -1e-17, 12345.678901234567};
  body.pivot.reset();
  const Body again = bodies::bodyFromText(bodies::bodyText(body), "again.json");
  EXPECT_EQ(again.markers[0].position, body.markers[0].position);
  EXPECT_EQ(again.markers[2].deviation, body.markers[2].deviation);
  EXPECT_FALSE(again.pivot);
}

const std::string kPair = R"({"format": "alg_factory body", "version": 1, "name": "stick",
"unit": "mm", "markers": [{"id": 2, "position": [-34, 0, 0]}, {"id": 2, "position": [34, 0, 0]}]})";

TEST(BodyFile, TwoMarkersOfTheTwoPointObjectAreAPairWhereOneIsTaken) {
  const Body pair = bodies::bodyFromText(kPair, "stick.json", bodies::Pairs::kTaken);
  EXPECT_TRUE(pair.isPair());
  EXPECT_EQ(bodies::axisOf(pair), Eigen::Vector3d(1, 0, 0));
  const Body again =
      bodies::bodyFromText(bodies::bodyText(pair), "again.json", bodies::Pairs::kTaken);
  EXPECT_TRUE(again.isPair());
  EXPECT_EQ(again.markers[1].position, pair.markers[1].position);
  EXPECT_THROW(bodies::bodyFromText(kPair, "stick.json"), text::FileError);
}

TEST(BodyFile, NamesTheIdsOfAPairAsTheFileHasThem) {
  std::string text = kPair;
  text.replace(text.find("[34"), 3, "[-34");
  try {
    bodies::bodyFromText(text, "stick.json", bodies::Pairs::kTaken);
    FAIL();
  } catch (const text::FileError& error) {
    EXPECT_THAT(error.what(), HasSubstr("found ids 2 and 2 in one place"));
  }
}

TEST(BodyFile, SaysHowManyMarkersThereAre) {
  EXPECT_THAT(errorWith("\"markers\": [", "\"markers\": [], \"other\": ["),
              HasSubstr("expected 3 to 16 markers, found 0"));
  EXPECT_THAT(errorWith("\"markers\": [", "\"markers\": 3, \"other\": ["),
              HasSubstr("found no list"));
}

TEST(BodyFile, WhatIsNoBodyIsRefusedInOneLine) {
  EXPECT_THAT(errorWith("[10, 0, 0]", "[0, 10, 0]"), HasSubstr("span a plane"));
  EXPECT_THAT(errorWith("alg_factory body", "another"),
              HasSubstr("tool.json: expected the format"));
  EXPECT_THAT(errorWith("\"version\": 1", "\"version\": 2"), HasSubstr("version 1"));
  EXPECT_THAT(errorWith("\"unit\": \"mm\"", "\"unit\": \"m\""), HasSubstr("expected the unit mm"));
  EXPECT_THAT(errorWith("\"id\": 2", "\"id\": 0"), HasSubstr("each once"));
  EXPECT_THAT(errorWith("\"id\": 2", "\"id\": 16"), HasSubstr("an id of 0 to 15"));
  EXPECT_THAT(errorWith("\"id\": 2", "\"id\": -1"), HasSubstr("an id of 0 to 15"));
  EXPECT_THAT(errorWith("[10, 0, 0]", "[0, 0, 0]"), HasSubstr("found ids 0 and 2 in one place"));
  EXPECT_THAT(errorWith("[10, 0, 0]", "[10, 0]"), HasSubstr("three numbers in position"));
  EXPECT_THAT(errorWith("[10, 0, 0]", "[1e300, 0, 0]"), HasSubstr("at most 100 m"));
  EXPECT_THAT(errorWith("0.3]", "-0.3]"), HasSubstr("0 or more in deviation"));
  EXPECT_THAT(errorWith("\"name\": \"tool\"", "\"name\": 1"), HasSubstr("a text as name"));
  EXPECT_THAT(errorWith("{\"format\"", std::string(40, '[') + "{\"format\""),
              HasSubstr("deeper nesting"));
  EXPECT_THAT(errorWith("{\"format\"", "{{\"format\""), HasSubstr("as JSON"));
}

}  // namespace
