// One thread feeds while others query, for every product type, framing and filter mode. The thread
// sanitizer watches; without it the tests still see torn answers and hangs.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <tests/support/Host.h>

namespace {

using algorithm::PoseAnswer;
using algorithm::ResultBlock;
using testing_support::Host;
using testing_support::Marker;

constexpr int kFrames = 400;
constexpr int kQueriers = 4;

/// Queries events 0 to 5 on several threads for as long as it lives.
class Queriers {
 public:
  explicit Queriers(algorithm::AlgBase* alg) {
    for (int i = 0; i < kQueriers; ++i) threads_.emplace_back([this, alg, i] { query(alg, i); });
    while (answers() < 6 * kQueriers) std::this_thread::yield();
  }
  ~Queriers() {
    stop_ = true;
    for (std::thread& thread : threads_) thread.join();
  }

  int answers() const { return answers_; }
  int wrong() const { return wrong_; }

 private:
  void query(algorithm::AlgBase* alg, int first) {
    for (int event = first; !stop_; ++event) {
      const std::uint64_t stamp = 1000000u + static_cast<unsigned>(event);
      PoseAnswer answer;
      const bool result = alg->HandleEvent(event % 6, &stamp, &answer);
      // The records of these products hold the object of their own number, or none.
      const bool fits = answer.id == -1 || answer.id == event % 6;
      if (!result || !fits) ++wrong_;
      ++answers_;
    }
  }

  std::vector<std::thread> threads_;
  std::atomic<bool> stop_{false};
  std::atomic<int> answers_{0}, wrong_{0};
};

void feedFrame(const Host& host, int productType, bool isStamped, int n) {
  std::vector<Marker> markers;
  const int objects = productType == 2 ? 6 : 3;
  for (int id = 0; id < objects; ++id) {
    if ((n + id) % 7 == 0) continue;  // objects come and go
    markers.push_back({id, 60.0 * id - 150 + n % 5, 0, 1600, testing_support::kSmall});
  }
  if (isStamped) {
    host.seeAt(1000000u + static_cast<unsigned>(n) * 11111u, markers);
  } else {
    host.see(markers);
  }
  if (n % 10 == 0) {
    algorithm::InertialRecord record;
    record.p[0] = static_cast<float>(n);
    host.inertial(3 + n / 10 % 2, record);
    host.input(1, testing_support::Bytes(56));
    host.input(5, {1, 0, 0, 0});
  }
}

class Feeding : public testing::TestWithParam<std::tuple<int, bool, int>> {};

TEST_P(Feeding, SharesNothingUnguardedWithQueriesOfOtherThreads) {
  const auto [productType, isStamped, filterMode] = GetParam();
  const Host host(productType);
  ASSERT_TRUE(host.alg->SetFilterMode(0, filterMode, nullptr));
  const Queriers queriers(host.alg);
  for (int n = 0; n < kFrames; ++n) feedFrame(host, productType, isStamped, n);
  EXPECT_EQ(queriers.wrong(), 0);
  EXPECT_EQ(host.data.blocks.size(), static_cast<std::size_t>(kFrames));
}

std::string nameOf(const testing::TestParamInfo<Feeding::ParamType>& test) {
  const auto [productType, isStamped, filterMode] = test.param;
  return "ProductType" + std::to_string(productType) + (isStamped ? "Stamped" : "Plain") + "Mode" +
         (filterMode == -1 ? "Off" : std::to_string(filterMode));
}

INSTANTIATE_TEST_SUITE_P(, Feeding,
                         testing::Combine(testing::Values(0, 1, 2), testing::Bool(),
                                          testing::Values(-1, 0, 1)),
                         nameOf);

/// Runs what it is given inside Deliver.
class Callback : public algorithm::DataSink {
 public:
  bool Deliver(const void*, int, int) override {
    action();
    return true;
  }
  std::function<void()> action;
};

TEST(DeliveryUnderQueries, MayQueryItselfMeanwhile) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  Callback callback;
  int answered = 0;
  callback.action = [&] {
    for (int event = 0; event < 6; ++event) {
      PoseAnswer answer;
      if (host.alg->HandleEvent(event, nullptr, &answer)) ++answered;
    }
  };
  host.alg->SetDataCallback(&callback);
  const Queriers queriers(host.alg);
  for (int n = 0; n < kFrames; ++n) feedFrame(host, 2, false, n);
  EXPECT_EQ(answered, 6 * kFrames);
  EXPECT_EQ(queriers.wrong(), 0);
}

TEST(DeliveryUnderQueries, MayThrowAndTheQueriesGoOn) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  Callback callback;
  callback.action = [] { throw std::runtime_error("host's own"); };
  host.alg->SetDataCallback(&callback);
  const Queriers queriers(host.alg);
  int thrown = 0;
  for (int n = 0; n < kFrames; ++n) {
    try {
      feedFrame(host, 2, false, n);
    } catch (const std::runtime_error&) {
      ++thrown;
    }
  }
  EXPECT_EQ(thrown, kFrames);
  const int before = queriers.answers();
  while (queriers.answers() == before) std::this_thread::yield();
  EXPECT_EQ(queriers.wrong(), 0);
}

}  // namespace
