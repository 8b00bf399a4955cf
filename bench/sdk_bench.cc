// Measures unpacking and the feature query against a copy and a bare parse. Measures a watched scan
// against two hand-overs between threads, which are the minimum between the SDK's thread and the
// main thread. Measures the cost of unrelated events.

#include <benchmark/benchmark.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "app/kx_tool.h"
#include "json/document.h"
#include "sdk/envelope.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"

namespace {

/// An answer of about `size` bytes, which lists features.
std::string AnswerOfSize(std::size_t size) {
  std::string text = R"({"response":{"data":{"Product":[{"error":0,"output":{"Features":[)";
  for (int number = 0; text.size() < size; ++number) {
    if (number > 0) text += ',';
    text += R"({"id":"feature-)" + std::to_string(number) +
            R"(","isFunctioning":true,"enabled":true,"description":"watches one thing"})";
  }
  return text + "]}}]}}}";
}

void UnpackAnswer(benchmark::State& state) {
  const std::string text = AnswerOfSize(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    const std::string answer = text.c_str();
    rapidjson::MemoryPoolAllocator<> allocator(1024);
    rapidjson::Document output(&allocator);
    benchmark::DoNotOptimize(sdk::UnpackAnswer(answer, "Product.GetStatus", output, nullptr));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void GetFeatureStatus(benchmark::State& state) {
  const std::string text = AnswerOfSize(static_cast<std::size_t>(state.range(0)));
  fake::World& world = fake::World::Reset();
  fake::Sdk& sdk = fake::Sdk::Reset();
  sdk.Install();
  sdk.onRun = [&](const std::string& batch) {
    world.whenWaiting.push_back([&, batch] { sdk.Complete(batch.c_str(), 0, text.c_str()); });
  };
  const char* words[] = {"KXTool", "-getFeatureStatus"};
  KXTool tool(2, words);
  for (auto _ : state) {
    std::string result;
    benchmark::DoNotOptimize(tool.GetFeatureStatus(result, nullptr));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void CopyAndParse(benchmark::State& state) {
  const std::string text = AnswerOfSize(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    const std::string answer = text.c_str();
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(answer.c_str());
    benchmark::DoNotOptimize(document.IsObject());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(10'000)->Arg(1'000'000)->Arg(100'000'000)->Unit(benchmark::kMicrosecond);
}

using Clock = std::chrono::steady_clock;

constexpr char kStarted[] = "FileScan.OnDemand.ScanStarted";

/// Long enough for all threads to be waiting when the event comes.
constexpr std::chrono::milliseconds kSettle(2);

fake::Sdk& InstallProduct() {
  fake::World::Reset().waitsAreReal = true;
  fake::Sdk& sdk = fake::Sdk::Reset();
  sdk.Install();
  return sdk;
}

/// Runs one watched scan. `product` acts as the product, on a separate thread.
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

/// A signal that one thread gives and another waits for.
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

BENCHMARK(UnpackAnswer)->Apply(Sizes);
BENCHMARK(GetFeatureStatus)->Apply(Sizes);
BENCHMARK(CopyAndParse)->Apply(Sizes);

BENCHMARK(WatchedScan)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(TwoHandOvers)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(StormOfEvents)->Arg(10'000)->Arg(100'000)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
