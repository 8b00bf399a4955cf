#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/query_test.h"

namespace {

/// Asks every status query of a product that answers `answer`.
void AskAll(const std::string& answer) {
  fake::World::Reset();
  fake::Sdk& sdk = fake::Sdk::Reset();
  sdk.Install();
  sdk.answers = {answer};
  static const char* arguments[] = {"/opt/kx/KXTool", "-getProductVersion"};
  KXTool tool(2, arguments);
  for (const fake::Query& query : fake::AllQueries()) {
    std::string result;
    query.run(tool, result, nullptr);
  }
  if (sdk.LiveInstances() != 0 || fake::World::Current().openLibraries != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  AskAll(text);
  AskAll(fake::Answer(text));
  return 0;
}
