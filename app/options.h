#ifndef APP_OPTIONS_H_
#define APP_OPTIONS_H_

#include <array>
#include <string>

class KXTool;
class Logger;

/// Bounds of the argument count of any command line, the program name included.
inline constexpr int kMinimumArgumentCount = 2;
inline constexpr int kMaximumArgumentCount = 9;

/// The arguments of -getInstallationLink; one that was not given is empty.
struct LinkArguments {
  std::string consoleUrl;
  std::string apiKey;
  std::string packageName;
  bool setupDownloaderLink = true;  ///< true when the switch of that name is absent
};

/// What one run of an option works on.
struct OptionRun {
  KXTool& tool;
  std::string& result;  ///< the answer text
  Logger* logger;
  LinkArguments link;
  /// The number that the end message of some options names.
  long long value = 0;
};

/// What an end message has behind its fixed text.
enum class EndNumber {
  kNothing,
  kCode,   ///< the operation's code
  kValue,  ///< OptionRun::value
};

/// When a failed operation's end message and result text are written. After a success they always
/// are.
enum class OnFailure { kReport, kStaySilent };

/// One command option: its command line, its messages and its operation.
struct Option {
  const char* name;
  int minimumCount;  ///< of command-line words, the program name included
  int maximumCount;
  const char* startMessage;
  bool startsAfterCountTest;  ///< the start message is not logged for a wrong count
  const char* badArgumentsMessage;
  /// Judges and takes over the option's arguments once their count is right; logs what is wrong
  /// with them. Null when there is nothing to judge.
  bool (*accept)(OptionRun& run);
  /// Runs the operation. @return its code.
  int (*operate)(OptionRun& run);
  const char* endMessage;  ///< null for none
  EndNumber endNumber;
  OnFailure onFailure;
};

/// All options, in the order in which they are tested.
extern const std::array<Option, 17> kOptions;

#endif  // APP_OPTIONS_H_
