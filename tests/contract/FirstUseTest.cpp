// The service is built by the first operation that needs it, once. Its allocation shows from
// outside: it is the only large one of a first query, and the library uses the program's operator
// new.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include <tests/support/Host.h>

namespace {

// The service holds the decoder's frame (512 bytes), the calibration (920) and the result block
// (528), and is therefore larger than their sum.
constexpr std::size_t kServiceSize = 512 + 920 + 528;

std::atomic<bool> watching{false};
std::atomic<bool> failing{false};
std::atomic<int> services{0};

void* allocate(std::size_t size) {
  if (watching && size > kServiceSize) {
    ++services;
    if (failing) throw std::bad_alloc();
    // Time for other threads to arrive before the service stands.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using algorithm::AlgBase;
using testing_support::createAndKeep;

/// A query is the only operation that threads may make at the same time.
int idOfFirstHead(AlgBase* alg) {
  algorithm::PoseAnswer answer;
  answer.id = -999;
  alg->HandleEvent(0, nullptr, &answer);
  return answer.id;
}

class FirstUse : public testing::Test {
 protected:
  void SetUp() override {
#if defined(_WIN32)
    GTEST_SKIP() << "a DLL uses an operator new of its own";
#endif
  }
};

TEST_F(FirstUse, CreatingAnObjectCreatesNoService) {
  watching = true;
  AlgBase* const alg = createAndKeep(0);
  EXPECT_EQ(alg->GetFixedCode(), 800);
  EXPECT_FALSE(alg->SetLogCallback(nullptr));
  EXPECT_FALSE(alg->SetDataCallback(nullptr));
  EXPECT_EQ(services, 0);
  EXPECT_EQ(idOfFirstHead(alg), -1);
  watching = false;
  EXPECT_EQ(services, 1);
}

TEST_F(FirstUse, OfManyThreadsAtOnceCreatesOneService) {
  constexpr int kThreads = 64;
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::atomic<int> answers{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    AlgBase* const alg = createAndKeep(i % 3);
    threads.emplace_back([&, alg] {
      ++ready;
      while (!go) std::this_thread::yield();
      if (idOfFirstHead(alg) == -1) ++answers;
    });
  }
  while (ready < kThreads) std::this_thread::yield();
  watching = true;
  go = true;
  for (std::thread& thread : threads) thread.join();
  watching = false;

  EXPECT_EQ(services, 1);
  EXPECT_EQ(answers, kThreads);
}

TEST_F(FirstUse, ThatFindsNoMemoryThrowsAndTheNextOneTriesAgain) {
  AlgBase* const alg = createAndKeep(0);
  watching = failing = true;
  EXPECT_THROW(idOfFirstHead(alg), std::bad_alloc);
  EXPECT_THROW(idOfFirstHead(alg), std::bad_alloc);
  failing = false;
  EXPECT_EQ(idOfFirstHead(alg), -1);
  EXPECT_EQ(services, 3);
  EXPECT_EQ(idOfFirstHead(alg), -1);
  EXPECT_EQ(services, 3);
  watching = false;
}

}  // namespace
