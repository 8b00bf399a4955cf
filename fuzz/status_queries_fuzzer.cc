#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/query_fixture.h"

/// The first byte selects the status query, and whether the rest is the product's whole answer or
/// the output within it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::vector<fake::Query>& queries = fake::AllQueries();
  const fake::Query& query = queries[*data % queries.size()];
  const bool isWholeAnswer = *data / queries.size() % 2 == 0;
  const std::string text(data + 1, data + size);

  fake::World::Reset();
  fake::Sdk& sdk = fake::Sdk::Reset();
  sdk.Install();
  sdk.answers = {isWholeAnswer ? text : fake::Answer(text)};
  static const char* arguments[] = {"/opt/kx/KXTool", "-getProductVersion"};
  KXTool tool(2, arguments);
  std::string result;
  query.run(tool, result, nullptr);
  if (sdk.LiveInstances() != 0 || fake::World::Current().openLibraries != 0) std::abort();
  return 0;
}
