// A process that ends while it uses the library. Loaded at run time, the library ends before the
// static objects of the host do; every test has a process of its own that ends that way.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <thread>

#include <tests/lifetime/ChildProcess.h>
#include <tests/lifetime/Tracking.h>

namespace {

using algorithm::PoseAnswer;
using testing_support::endOfChild;
using testing_support::LoadedLibrary;
using testing_support::require;
using testing_support::Tracking;

/// A static object of the host, older than the library: its destructor comes after the library's.
struct LastOfAll {
  std::function<void()> action;
  ~LastOfAll() {
    if (action) action();
  }
} lastOfAll;

/// No static destructor ends it; the leak checker finds it here.
template <typename T>
T& forEver(T* object) {
  [[maybe_unused]] static T* volatile kept;
  kept = object;
  return *object;
}

/// A host that never unloads.
Tracking& startTracking() {
  return forEver(new Tracking(forEver(new LoadedLibrary)));
}

TEST(Exit, CallsOfAStaticDestructorAfterTheLibrarysEndReturnFalse) {
  EXPECT_EQ(endOfChild([] {
              Tracking& host = startTracking();
              require(host.answered() == Tracking::kOperations, __LINE__);
              lastOfAll.action = [&host] {
                require(host.answered() == 0, __LINE__);
                require(host.alg->GetFixedCode() == 800, __LINE__);
              };
            }),
            "exit 0");
}

TEST(Exit, TheFirstCallOfAllMayComeAfterTheLibrarysEnd) {
  EXPECT_EQ(endOfChild([] {
              static const LoadedLibrary& library = forEver(new LoadedLibrary);
              lastOfAll.action = [] {
                const std::unique_ptr<algorithm::AlgBase> alg(library.create(1));
                require(alg != nullptr, __LINE__);
                require(!alg->SetFilterMode(0, 0, nullptr), __LINE__);
              };
            }),
            "exit 0");
}

TEST(Exit, ACallInProgressEndsAsItBeganAndIsTheLast) {
  EXPECT_EQ(endOfChild([] {
              Tracking& host = startTracking();
              struct Signals {
                std::promise<void> inside, libraryIsGone;
              };
              Signals& signals = forEver(new Signals);
              host.sink.whileDelivering = [&] {
                signals.inside.set_value();
                signals.libraryIsGone.get_future().wait();
              };
              auto& feeder = forEver(new std::thread([&host] {
                require(host.feed(), __LINE__);
                require(host.answered() == 0, __LINE__);
              }));
              signals.inside.get_future().wait();
              lastOfAll.action = [&] {
                signals.libraryIsGone.set_value();
                feeder.join();
              };
            }),
            "exit 0");
}

TEST(Exit, FromInsideACallbackWaitsForNobody) {
  EXPECT_EQ(endOfChild([] {
              Tracking& host = startTracking();
              host.sink.whileDelivering = [] { std::exit(0); };
              host.feed();
              require(false, __LINE__);
            }),
            "exit 0");
}

// Threads that nobody stops: they call before, while and after the library ends, and are gone with
// the process.
TEST(Exit, MayComeWhileThreadsCallIn) {
  for (int n = 0; n < 20; ++n) {
    ASSERT_EQ(endOfChild([] {
                static std::atomic<int> calls{0};
                Tracking& host = startTracking();
                std::thread([&host] {
                  for (;; ++calls) host.feed();
                }).detach();
                for (int i = 0; i < 3; ++i) {
                  std::thread([&host] {
                    for (PoseAnswer answer;; ++calls) host.query(answer);
                  }).detach();
                }
                while (calls < 100) std::this_thread::yield();
                lastOfAll.action = [] {
                  for (const int before = calls; calls < before + 100;) std::this_thread::yield();
                };
              }),
              "exit 0")
        << "run " << n;
  }
}

}  // namespace
