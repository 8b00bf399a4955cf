#ifndef TESTS_SUPPORT_TOOL_FIXTURE_H_
#define TESTS_SUPPORT_TOOL_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "app/kx_tool.h"
#include "diag/logger.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fake_sdk.h"

namespace fake {

/// Fixture of every test that uses the tool: a fresh World, a fresh SDK (not installed), and the
/// log, which is a real file in a directory of the test program.
class ToolFixture : public testing::Test {
 protected:
  ToolFixture();
  /// Fails the test when it leaves an SDK instance, a file, a directory, a library or a thread
  /// behind.
  ~ToolFixture() override;

  /// Makes a new tool for a command line; `words` follow the program name.
  KXTool& MakeTool(const std::vector<std::string>& words = {"-getProductVersion"});
  KXTool& Tool() { return *tool_; }

  /// The logger, switched on.
  Logger* Log();

  /// The lines logged since the last call, without time stamps. A message can have several lines.
  std::vector<std::string> TakeLog();

  World& world = World::Reset();
  Sdk& sdk = Sdk::Reset();

 private:
  std::unique_ptr<KXTool> tool_;
};

using Lines = std::vector<std::string>;

/// Concatenates transcripts.
Lines Concat(std::initializer_list<Lines> parts);

/// Splits messages into the lines that TakeLog() returns.
Lines SplitAtNewlines(const Lines& messages);

/// The log of the signature check of `path` when it accepts the file.
Lines AcceptedSignatureLog(const std::string& path);

/// The log of an SDK call for the installed product up to the look-up of its method.
Lines LoadedLibraryLog(const std::string& method);

/// The log of one try of the newest batch, from getting the instance to the status of the run. The
/// fake clocks stand still.
Lines TryLog(int number, int status);

/// The main thread's log of an SDK call whose first try succeeds, up to its wait and without the
/// line about the time limit.
Lines StartedCallLog(const std::string& method);

/// The lines of OnRan() for the current batch, with `answer`.
Lines CompletionLog(const std::string& answer);

/// The whole log of an SDK call through the wrapper that succeeds with `answer`.
Lines AnsweredWrapperLog(const std::string& method, const std::string& answer);

}  // namespace fake

#endif  // TESTS_SUPPORT_TOOL_FIXTURE_H_
