#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "app/options.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"

namespace {

void Expect(bool condition) {
  if (!condition) std::abort();
}

/// Splits the input into words, one per line, and adjusts their number to what the program can pass
/// to the tool.
std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) words.push_back(line.c_str());
  words.resize(std::clamp<std::size_t>(words.size(), kMinArgumentCount, kMaxArgumentCount));
  return words;
}

/// Runs the tool without a product, or with one whose answers are empty.
void Run(const std::vector<std::string>& words, bool isInstalled) {
  fake::World& world = fake::World::Reset();
  fake::Sdk& sdk = fake::Sdk::Reset();
  if (isInstalled) sdk.Install();
  sdk.answers = {"{}"};

  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word.c_str());
  KXTool tool(static_cast<int>(arguments.size()), arguments.data());
  std::string result;
  try {
    const int code = tool.Run(result);
    Expect(code != kEINVAL || world.standardOutput.empty() || isInstalled);
    Expect(tool.scanTimeout == -1 || tool.scanTimeout >= 5);
  } catch (const std::logic_error&) {
    // Only the exception for a time limit that is empty or too long may escape.
    Expect(words.size() == 3 && (words[2].empty() || words[2].size() > 18));
  }
  Expect(world.openLibraries == 0 && world.openFiles == 0 && world.runningThreads == 0);
  Expect(sdk.LiveInstances() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> words = Words(std::string(data, data + size));
  Run(words, false);
  // With a product whose answers are empty, a watched scan would never end.
  if (words.size() != 3) Run(words, true);
  return 0;
}
