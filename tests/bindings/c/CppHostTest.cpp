// The header in C++, beside the library's own interface.
#include <tests/bindings/c/scene.h>

#include <alg_factory/api/AlgFactory.h>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

namespace {

static_assert(std::is_standard_layout_v<alg_block> && std::is_trivial_v<alg_block>);

alg_host* sceneHost() {
  const alg_calibration calibration = scene_calibration();
  alg_host* host = nullptr;
  EXPECT_EQ(alg_host_open(2, &host), ALG_OK);
  EXPECT_EQ(alg_host_init(host, &calibration, sizeof calibration), ALG_OK);
  return host;
}

void countBlock(const alg_block* block, void* user) {
  if (block->points[0].id == 0) ++*static_cast<int*>(user);
}

alg_status feed(alg_host* host) {
  return alg_host_feed(host, scene_packet, sizeof scene_packet);
}

TEST(CInterfaceInCpp, SharesTheProcessesPipelineWithTheLibrarysOwnInterface) {
  alg_host* const host = sceneHost();
  int blocks = 0;
  ASSERT_EQ(alg_host_on_block(host, countBlock, &blocks), ALG_OK);
  static algorithm::AlgBase* const alg = algorithm::AlgFactory::CreateALG(0);
  EXPECT_TRUE(alg->InputStream(0, scene_packet, 0, static_cast<int>(sizeof scene_packet)));
  EXPECT_EQ(blocks, 1);
}

TEST(CInterfaceInCpp, ExceptionOfACallbackEndsAsAStatusAndTheHostGoesOn) {
  alg_host* const host = sceneHost();
  ASSERT_EQ(alg_host_on_block(
                host, [](const alg_block*, void*) { throw std::runtime_error("ours"); }, nullptr),
            ALG_OK);
  EXPECT_EQ(feed(host), ALG_CALLBACK_FAILED);
  ASSERT_EQ(alg_host_on_block(
                host, [](const alg_block*, void*) { throw std::bad_alloc(); }, nullptr),
            ALG_OK);
  EXPECT_EQ(feed(host), ALG_CALLBACK_FAILED);
  int blocks = 0;
  ASSERT_EQ(alg_host_on_block(host, countBlock, &blocks), ALG_OK);
  EXPECT_EQ(feed(host), ALG_OK);
  EXPECT_EQ(blocks, 1);
}

TEST(CInterfaceInCpp, ExceptionOfALogCallbackEndsAsAStatus) {
  alg_host* const host = sceneHost();
  ASSERT_EQ(alg_host_on_log(
                host, [](std::int32_t, const char*, void*) { throw 1; }, nullptr),
            ALG_OK);
  const std::uint8_t damaged[] = {0xAA, 0x55, 0x00};
  EXPECT_EQ(alg_host_feed(host, damaged, sizeof damaged), ALG_CALLBACK_FAILED);
  EXPECT_EQ(feed(host), ALG_OK);
}

TEST(CInterfaceInCpp, TwoFeedersDoNotOverlapAndQueriesRunBesideThem) {
  alg_host* const host = sceneHost();
  struct Inside {
    std::atomic<bool> reached{false}, leave{false};
  } inside;
  ASSERT_EQ(alg_host_on_block(
                host,
                [](const alg_block*, void* user) {
                  auto& here = *static_cast<Inside*>(user);
                  here.reached = true;
                  while (!here.leave) std::this_thread::yield();
                },
                &inside),
            ALG_OK);
  std::thread feeder([&] { EXPECT_EQ(feed(host), ALG_OK); });
  while (!inside.reached) std::this_thread::yield();
  EXPECT_EQ(feed(host), ALG_BUSY);
  EXPECT_EQ(alg_host_filter_mode(host, 0), ALG_BUSY);
  EXPECT_EQ(alg_host_close(host), ALG_BUSY);
  std::int32_t code = 0;
  EXPECT_EQ(alg_host_fixed_code(host, &code), ALG_OK);
  std::thread query([&] {  // waits for the block that is being published
    alg_pose pose{};
    pose.size = sizeof pose;
    EXPECT_EQ(alg_host_pose(host, 0, &pose), ALG_OK);
  });
  inside.leave = true;
  feeder.join();
  query.join();
  EXPECT_EQ(feed(host), ALG_OK);
}

TEST(CInterfaceInCpp, ErrorTextsAreTheThreadsOwn) {
  EXPECT_EQ(alg_host_open(7, nullptr), ALG_NULL_ARGUMENT);
  const std::string ours = alg_error_text();
  std::thread([] {
    EXPECT_STREQ(alg_error_text(), "");
    alg_host* host = nullptr;
    EXPECT_EQ(alg_host_open(7, &host), ALG_BAD_ARGUMENT);
    EXPECT_STREQ(alg_error_text(), "product type: expected 0, 1 or 2, found 7");
  }).join();
  EXPECT_EQ(alg_error_text(), ours);
}

}  // namespace
