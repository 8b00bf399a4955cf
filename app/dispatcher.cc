#include <algorithm>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "app/options.h"
#include "diag/configuration_file.h"
#include "diag/global_logger.h"
#include "diag/log_message.h"
#include "diag/text.h"
#include "platform/files.h"
#include "platform/standard_streams.h"

namespace {

/// The directory of the program as it was called, ending in "/"; empty when it was called by its
/// bare name.
std::string DirectoryOf(const std::string& programPath) {
  return programPath.substr(0, programPath.rfind('/') + 1);
}

void LogEnd(const End& end, const OptionRun& run, int code) {
  if (end.message == nullptr) return;
  switch (end.number) {
    case EndNumber::kNothing:
      return Utils::LogMessage(run.logger, end.message);
    case EndNumber::kCode:
      return Utils::LogMessage(run.logger, end.message, code);
    case EndNumber::kValue:
      return Utils::LogMessage(run.logger, end.message, run.value);
  }
}

/// Validates the arguments of `option`, runs its operation and reports the outcome.
/// @return the run's code.
int RunOption(const Option& option, OptionRun& run) {
  const Messages& messages = option.messages;
  const auto logStartAt = [&](StartTime time) {
    if (messages.startTime == time) Utils::LogMessage(run.logger, messages.start);
  };
  logStartAt(StartTime::kBeforeCountTest);
  if (run.tool.argc < option.words.minimum || run.tool.argc > option.words.maximum) {
    Utils::LogMessage(run.logger, messages.badArguments);
    return kEINVAL;
  }
  logStartAt(StartTime::kAfterCountTest);
  if (option.accept != nullptr && !option.accept(run)) return kEINVAL;

  const int code = option.operate(run);
  if (code == kSuccess || option.end.onFailure == OnFailure::kReport) {
    LogEnd(option.end, run, code);
    platform::WriteStandardOutput(run.result);
  }
  return code;
}

}  // namespace

int KXTool::Run(std::string& result) {
  const std::string directory = DirectoryOf(arguments[0]);
  const std::string configurationPath = directory + "configfile.txt";
  if (platform::FileExists(configurationPath)) {
    Utils::ParseConfigFile(configurationPath, logger, directory);
  }

  const auto* const option =
      std::find_if(kOptions.begin(), kOptions.end(), [this](const Option& candidate) {
        return Utils::EqualsIgnoringCase(arguments[1], candidate.name);
      });
  if (option == kOptions.end()) {
    Utils::LogMessage(logger, "Invalid arguments for running RMM tool");
    return kEINVAL;
  }
  OptionRun run{*this, result, logger, {}, 0};
  return RunOption(*option, run);
}
