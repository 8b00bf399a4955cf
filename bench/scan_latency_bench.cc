// How soon a watched scan returns after the product's decisive event, against two hand-overs
// between threads through a condition variable, which is the least that the way from the SDK's
// thread over the event thread to the main thread can take. And what a storm of unrelated events
// costs.

#include <benchmark/benchmark.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "app/kx_tool.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kStarted[] = "FileScan.OnDemand.ScanStarted";

/// Long enough for everybody to be asleep when the event comes.
constexpr std::chrono::milliseconds kSettle(2);

fake::Sdk& InstallProduct() {
  fake::World::Reset().waitsAreReal = true;
  fake::Sdk& sdk = fake::Sdk::Reset();
  sdk.Install();
  return sdk;
}

/// Makes one watched scan for which `product` plays the product's part on a thread of its own.
/// @return when the scan command returned
template <typename Product>
Clock::time_point Scan(fake::Sdk& sdk, const Product& product) {
  const char* words[] = {"KXTool", "-startQuickScan"};
  KXTool tool(2, words);
  tool.scanTimeout = 60;
  std::thread thread;
  sdk.onRun = [&](const std::string&) { thread = std::thread(product); };
  long long result = 0;
  benchmark::DoNotOptimize(tool.StartQuickScan(result, nullptr));
  const Clock::time_point returned = Clock::now();
  thread.join();
  return returned;
}

void WatchedScan(benchmark::State& state) {
  fake::Sdk& sdk = InstallProduct();
  for (auto _ : state) {
    Clock::time_point raised;
    const Clock::time_point returned = Scan(sdk, [&] {
      std::this_thread::sleep_for(kSettle);
      raised = Clock::now();
      sdk.Raise(kStarted);
    });
    state.SetIterationTime(std::chrono::duration<double>(returned - raised).count());
  }
}

/// A thread that waits to be handed something and hands it on.
class HandOver {
 public:
  void Give() {
    {
      const std::lock_guard<std::mutex> lock(lock_);
      isGiven_ = true;
    }
    given_.notify_all();
  }
  void Await() {
    std::unique_lock<std::mutex> lock(lock_);
    given_.wait(lock, [this] { return isGiven_; });
  }

 private:
  std::mutex lock_;
  std::condition_variable given_;
  bool isGiven_ = false;
};

void TwoHandOvers(benchmark::State& state) {
  for (auto _ : state) {
    HandOver first;
    HandOver second;
    Clock::time_point given;
    std::thread middle([&] {
      first.Await();
      second.Give();
    });
    std::thread giver([&] {
      std::this_thread::sleep_for(kSettle);
      given = Clock::now();
      first.Give();
    });
    second.Await();
    const Clock::time_point received = Clock::now();
    middle.join();
    giver.join();
    state.SetIterationTime(std::chrono::duration<double>(received - given).count());
  }
}

void StormOfEvents(benchmark::State& state) {
  fake::Sdk& sdk = InstallProduct();
  for (auto _ : state) {
    Scan(sdk, [&] {
      for (std::int64_t number = 0; number < state.range(0); ++number) sdk.Raise("Update.Finished");
      sdk.Raise(kStarted);
    });
  }
}

BENCHMARK(WatchedScan)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(TwoHandOvers)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(StormOfEvents)->Arg(10'000)->Arg(100'000)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
