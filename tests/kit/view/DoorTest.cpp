#include <alg_kit/view/Door.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace view {
namespace {

using Place = Entrance::Place;

const DoorRules kRules = {"127.0.0.1", 8700, "0123456789abcdef0123456789abcdef", 2};

Knock knockAt(const std::string& target) {
  static std::string kept;
  kept = target;
  Knock knock;
  knock.method = "GET";
  knock.target = kept;
  knock.host = "127.0.0.1:8700";
  return knock;
}

TEST(Door, OpensThePageWithTheToken) {
  EXPECT_EQ(judge(knockAt("/?token=0123456789abcdef0123456789abcdef"), kRules).place, Place::kPage);
}

TEST(Door, RefusesEveryPlaceWithoutTheToken) {
  for (const char* target :
       {"/", "/?token=", "/?token=0123456789abcdef0123456789abcdee", "/?token=0123456789abcdef",
        "/part.csv?file=0&from=0&to=1", "/live", "/?xtoken=0123456789abcdef0123456789abcdef"}) {
    Knock knock = knockAt(target);
    EXPECT_EQ(judge(knock, kRules).status, 403) << target;
    knock.wantsWebSocket = true;
    EXPECT_EQ(judge(knock, kRules).place, Place::kRefused) << target;
  }
}

TEST(Door, RefusesAForeignNameThatPointsHere) {
  for (const char* host : {"evil.example:8700", "127.0.0.1", "127.0.0.1:8701", "", "localhost",
                           "127.0.0.1.evil.example:8700", "192.168.0.1:8700"}) {
    Knock knock = knockAt("/?token=0123456789abcdef0123456789abcdef");
    knock.host = host;
    EXPECT_EQ(judge(knock, kRules).status, 403) << host;
  }
}

TEST(Door, TakesLocalhostForThisMachine) {
  Knock knock = knockAt("/?token=0123456789abcdef0123456789abcdef");
  knock.host = "localhost:8700";
  EXPECT_EQ(judge(knock, kRules).place, Place::kPage);
}

TEST(Door, OfAllAddressesTakesDigitsAndNoNames) {
  DoorRules rules = kRules;
  rules.address = "0.0.0.0";
  Knock knock = knockAt("/?token=0123456789abcdef0123456789abcdef");
  knock.host = "192.168.0.7:8700";
  EXPECT_EQ(judge(knock, rules).place, Place::kPage);
  knock.host = "[fe80::1]:8700";
  EXPECT_EQ(judge(knock, rules).place, Place::kPage);
  knock.host = "evil.example:8700";
  EXPECT_EQ(judge(knock, rules).status, 403);
}

TEST(Door, RefusesTheSocketToAPageFromElsewhere) {
  Knock knock = knockAt("/live?token=0123456789abcdef0123456789abcdef");
  knock.wantsWebSocket = true;
  EXPECT_EQ(judge(knock, kRules).place, Place::kLive);
  knock.hasOrigin = true;
  for (const char* origin : {"http://evil.example", "null", "", "http://127.0.0.1:8701",
                             "https://127.0.0.1:8700", "http://localhost:8700"}) {
    knock.origin = origin;
    EXPECT_EQ(judge(knock, kRules).status, 403) << origin;
  }
  knock.origin = "http://127.0.0.1:8700";
  EXPECT_EQ(judge(knock, kRules).place, Place::kLive);
}

TEST(Door, AnswersNothingButGet) {
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "HEAD", "get", ""}) {
    Knock knock = knockAt("/?token=0123456789abcdef0123456789abcdef");
    knock.method = method;
    EXPECT_EQ(judge(knock, kRules).status, 405) << method;
  }
}

TEST(Door, GivesAPartOfAFileThatIsThere) {
  const Entrance entrance =
      judge(knockAt("/part.csv?token=0123456789abcdef0123456789abcdef&file=1&from=-0.5&to=12.25"),
            kRules);
  ASSERT_EQ(entrance.place, Place::kCsv);
  EXPECT_EQ(entrance.file, 1);
  EXPECT_EQ(entrance.from, -0.5);
  EXPECT_EQ(entrance.to, 12.25);
  for (const char* query : {"&file=2&from=0&to=1", "&file=-1&from=0&to=1", "&file=0&from=x&to=1",
                            "&file=0&from=0", "&file=nan&from=0&to=1", "&file=0&from=0&to=1e300"})
    EXPECT_EQ(
        judge(knockAt(std::string("/part.csv?token=0123456789abcdef0123456789abcdef") + query),
              kRules)
            .status,
        400)
        << query;
}

TEST(Door, HasNoOtherPlace) {
  for (const char* path : {"/etc/passwd", "/../x", "/index.html", "//", "*"})
    EXPECT_EQ(judge(knockAt(std::string(path) + "?token=0123456789abcdef0123456789abcdef"), kRules)
                  .status,
              404)
        << path;
  EXPECT_EQ(judge(knockAt("/" + std::string(5000, 'a')), kRules).status, 414);
}

TEST(Door, TokensAreAllDifferent) {
  std::set<std::string> tokens;
  for (int i = 0; i < 100; ++i) {
    tokens.insert(randomToken());
    EXPECT_EQ(tokens.begin()->size(), 32u);
  }
  EXPECT_EQ(tokens.size(), 100u);
}

}  // namespace
}  // namespace view
