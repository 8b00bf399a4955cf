// Cost of unpacking the SDK's answer, and of the whole query for the features, against a copy of
// the text and a bare parse.

#include <benchmark/benchmark.h>

#include <string>

#include "app/kx_tool.h"
#include "json/document.h"
#include "sdk/envelope.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"

namespace {

/// An answer of about `size` bytes with as many features as that takes.
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

BENCHMARK(UnpackAnswer)->Apply(Sizes);
BENCHMARK(GetFeatureStatus)->Apply(Sizes);
BENCHMARK(CopyAndParse)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
