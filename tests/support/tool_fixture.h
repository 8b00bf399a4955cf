#ifndef TESTS_SUPPORT_TOOL_FIXTURE_H_
#define TESTS_SUPPORT_TOOL_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "app/kx_tool.h"
#include "diag/logger.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"

namespace fake {

/// Fixture of every test that works with the tool: a fresh World, a fresh SDK (not installed), and
/// the log, which is a real file in a directory of the test program's own.
class ToolFixture : public testing::Test {
 protected:
  ToolFixture();
  /// Fails the test when it leaves an SDK instance, a file, a directory, a library or a thread
  /// behind.
  ~ToolFixture() override;

  /// Makes (again) the tool for a command line; `words` are what follows the program name.
  KXTool& MakeTool(const std::vector<std::string>& words = {"-getProductVersion"});
  KXTool& Tool() { return *tool_; }

  /// The logger, switched on.
  Logger* Log();

  /// Messages logged since the last call, without their time stamps. A message of several lines
  /// comes as several.
  std::vector<std::string> TakeLog();

  World& world = World::Reset();
  Sdk& sdk = Sdk::Reset();

 private:
  std::unique_ptr<KXTool> tool_;
};

using Lines = std::vector<std::string>;

/// One transcript made of several, one after the other.
Lines Concat(std::initializer_list<Lines> parts);

/// The lines as TakeLog() yields them: a message with newlines comes as several.
Lines SplitAtNewlines(const Lines& messages);

/// The log of the signature check of `path` when it accepts the file.
Lines AcceptedSignatureLog(const std::string& path);

/// The log of an SDK call for the installed product up to the look-up of its method.
Lines LoadedLibraryLog(const std::string& method, int layout = 1);

/// The log of one try of a run: everything from getting the instance to the run's status. The fake
/// clocks stand still. The batch is the `batch`th of the world, the newest one unless told.
Lines TryLog(int number, int status, std::uint64_t batch = World::Current().uuids);

/// The main thread's log of an SDK call up to its wait, when the first try succeeds, without the
/// line about the time limit.
Lines StartedCallLog(const std::string& method, int layout = 1,
                     std::uint64_t batch = World::Current().uuids);

/// The lines of OnRan() for the current batch, with `answer`.
Lines CompletionLog(const std::string& answer);

/// The whole log of an SDK call through the wrapper that succeeds with `answer`.
Lines AnsweredWrapperLog(const std::string& method, const std::string& answer, int layout = 1,
                         std::uint64_t batch = World::Current().uuids);

/// The whole log of an SDK call through the wrapper where the product is not installed.
Lines AbsentProductWrapperLog(const std::string& method);

}  // namespace fake

#endif  // TESTS_SUPPORT_TOOL_FIXTURE_H_
