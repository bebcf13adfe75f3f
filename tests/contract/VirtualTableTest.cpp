// A host compiled yesterday calls by slot number, not by name. These tests do the same: they walk
// the virtual table by hand (Itanium C++ ABI), and hand the library sinks that are nothing but a
// table with one slot.
#include <gtest/gtest.h>

#include <cstring>

#include <tests/support/Host.h>

#if defined(__GNUC__)

namespace {

using algorithm::AlgBase;
using algorithm::DataSink;
using algorithm::LogSink;
using testing_support::BlockCollector;
using testing_support::createAndKeep;
using testing_support::RecordingLog;

using Slot = void (*)();

Slot slotOf(const AlgBase* alg, int index) {
  const Slot* table;
  std::memcpy(&table, static_cast<const void*>(alg), sizeof table);
  return table[index];
}

using InitCall = bool (*)(AlgBase*, int, const unsigned char*, int);
using InputStreamCall = bool (*)(AlgBase*, int, const unsigned char*, int, int);
using SetDataCallbackCall = bool (*)(AlgBase*, DataSink*);
using SetLogCallbackCall = bool (*)(AlgBase*, LogSink*);
using SetFilterModeCall = bool (*)(AlgBase*, int, int, void*);
using GetFixedCodeCall = int (*)(AlgBase*);
using HandleEventCall = bool (*)(AlgBase*, int, const void*, void*);

// A whole host's life through slot numbers alone. Each call has an effect that no other operation
// has, so a swapped pair of slots shows.
TEST(VirtualTable, SlotsZeroToSixAreTheSevenOperationsInOrder) {
  AlgBase* const alg = createAndKeep(0);
  RecordingLog log;
  BlockCollector data;
  const auto calibration = testing_support::handCalibration();
  unsigned char config[sizeof calibration];
  std::memcpy(config, &calibration, sizeof config);

  EXPECT_EQ(reinterpret_cast<GetFixedCodeCall>(slotOf(alg, 5))(alg), 800);
  ASSERT_TRUE(reinterpret_cast<SetLogCallbackCall>(slotOf(alg, 3))(alg, &log));
  ASSERT_TRUE(reinterpret_cast<SetDataCallbackCall>(slotOf(alg, 2))(alg, &data));
  ASSERT_TRUE(reinterpret_cast<InitCall>(slotOf(alg, 0))(alg, 2, config, 0));
  EXPECT_FALSE(reinterpret_cast<SetFilterModeCall>(slotOf(alg, 4))(alg, 1, 0, nullptr));
  EXPECT_TRUE(reinterpret_cast<SetFilterModeCall>(slotOf(alg, 4))(alg, 0, 0, nullptr));

  const auto packet = testing_support::packetOf({{4, 0, 0, 1000}});
  ASSERT_TRUE(reinterpret_cast<InputStreamCall>(slotOf(alg, 1))(alg, 0, packet.data(), 0,
                                                                static_cast<int>(packet.size())));
  ASSERT_EQ(data.blocks.size(), 1u);
  EXPECT_EQ(data.last().records[4].id, 4);

  algorithm::PoseAnswer answer;
  ASSERT_TRUE(reinterpret_cast<HandleEventCall>(slotOf(alg, 6))(alg, 4, nullptr, &answer));
  EXPECT_EQ(answer.id, 4);
  EXPECT_NEAR(answer.raw[2], -1000, 1e-3);

  EXPECT_TRUE(log.lines.empty());
  EXPECT_FALSE(reinterpret_cast<HandleEventCall>(slotOf(alg, 6))(alg, 7, nullptr, nullptr));
  EXPECT_FALSE(reinterpret_cast<InputStreamCall>(slotOf(alg, 1))(alg, 7, packet.data(), 0, 0));
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0].second, "alg: unknown event type!\n");
  EXPECT_EQ(log.lines[1].second, "alg: unknown stream types for current product type!\n");
}

/// An object with a virtual table of one slot: a call through any other slot would not return.
struct OneSlotObject {
  const Slot* table;
};

int logged = 0;
int loggedLevel = 0;
bool logSlot(void*, int level, const char* message) {
  ++logged;
  loggedLevel = level;
  return std::strcmp(message, "alg: unknown event type!\n") == 0;
}

int delivered = 0;
int deliveredLength = 0;
bool deliverSlot(void*, const void* buffer, int offset, int length) {
  ++delivered;
  deliveredLength = length;
  return buffer != nullptr && offset == 0;
}

TEST(VirtualTable, OnlyTheFirstSlotOfASinkIsCalled) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers look up the type of objects, and these have none";
#endif
  const Slot logTable[] = {reinterpret_cast<Slot>(&logSlot)};
  const Slot dataTable[] = {reinterpret_cast<Slot>(&deliverSlot)};
  OneSlotObject log{logTable};
  OneSlotObject data{dataTable};
  AlgBase* const alg = createAndKeep(0);
  ASSERT_TRUE(alg->SetLogCallback(reinterpret_cast<LogSink*>(&log)));
  ASSERT_TRUE(alg->SetDataCallback(reinterpret_cast<DataSink*>(&data)));
  const auto calibration = testing_support::handCalibration();
  ASSERT_TRUE(alg->Init(0, reinterpret_cast<const unsigned char*>(&calibration), 0));

  EXPECT_FALSE(alg->HandleEvent(7, nullptr, nullptr));
  EXPECT_EQ(logged, 1);
  EXPECT_EQ(loggedLevel, 4);

  const auto packet = testing_support::packetOf({{0, 0, 0, 1000}});
  EXPECT_TRUE(alg->InputStream(0, packet.data(), 0, static_cast<int>(packet.size())));
  EXPECT_EQ(delivered, 1);
  EXPECT_EQ(deliveredLength, 528);
}

}  // namespace

#endif
