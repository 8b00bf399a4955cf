#ifndef APP_OPTIONS_H_
#define APP_OPTIONS_H_

#include <array>
#include <string>

class KXTool;
class Logger;

/// Bounds of the argument count of any command line, including the program name.
inline constexpr int kMinArgumentCount = 2;
inline constexpr int kMaxArgumentCount = 9;

/// The arguments of -getInstallationLink; one that was not given is empty.
struct LinkArguments {
  std::string consoleUrl;
  std::string apiKey;
  std::string packageName;
  bool setupDownloaderLink = true;  ///< true when the switch of that name is absent
};

/// The input and output of one run of an option.
struct OptionRun {
  KXTool& tool;
  std::string& result;  ///< the answer text
  Logger* logger;
  LinkArguments link;
  /// The number that the end messages of some options report.
  long long value = 0;
};

/// How many words a command line may have, including the program name.
struct WordCount {
  int minimum = 2;
  int maximum = minimum;
};

/// When the start message is logged.
enum class StartTime { kBeforeCountTest, kAfterCountTest };

/// The messages that are logged before the operation.
struct Messages {
  const char* start;
  const char* badArguments;  ///< for a wrong count of words
  StartTime startTime = StartTime::kBeforeCountTest;
};

/// The number after the fixed text of an end message.
enum class EndNumber {
  kNothing,
  kCode,   ///< the operation's code
  kValue,  ///< OptionRun::value
};

/// Whether a failed operation's end message and result text are written. After a success they
/// always are.
enum class OnFailure { kReport, kStaySilent };

/// The message that ends an option's log, and whether a failure is reported.
struct End {
  const char* message = nullptr;  ///< null for none
  EndNumber number = EndNumber::kNothing;
  OnFailure onFailure = OnFailure::kReport;
};

/// One command option: its command line, its messages and its operation.
struct Option {
  const char* name;
  WordCount words;
  Messages messages;
  /// Runs the operation. @return its code.
  int (*operate)(OptionRun& run);
  End end = {};
  /// Validates and stores the option's arguments once their count is right. Logs what is wrong with
  /// them. Null when there is nothing to validate.
  bool (*accept)(OptionRun& run) = nullptr;
};

/// All options, in the order in which they are tested.
extern const std::array<Option, 17> kOptions;

#endif  // APP_OPTIONS_H_
