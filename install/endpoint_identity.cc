#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "json/document.h"
#include "json/lookup.h"
#include "platform/files.h"

namespace {

using rapidjson::Value;

/// RapidJSON's input stream over a file, read in chunks. The end of the file reads as a NUL.
/// @throws std::runtime_error on a read fault
class FileStream {
 public:
  using Ch = char;

  explicit FileStream(platform::InputFile& file) : file_(file) { Fill(); }
  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;

  Ch Peek() const { return position_ < count_ ? chunk_[position_] : '\0'; }
  Ch Take() {
    const Ch character = Peek();
    if (position_ < count_ && ++position_ == count_) Fill();
    return character;
  }

  // The rest of the stream concept is for the position of an error, which is not used, and for
  // writing, which the parser does not do here.
  std::size_t Tell() const { return 0; }
  Ch* PutBegin() { return nullptr; }
  void Put(Ch) {}
  void Flush() {}
  std::size_t PutEnd(Ch*) { return 0; }

 private:
  void Fill() {
    position_ = 0;
    if (file_.Read(chunk_.data(), chunk_.size(), count_) != 0) {
      throw std::runtime_error("read fault");
    }
  }

  platform::InputFile& file_;
  std::array<char, 16384> chunk_;
  std::size_t count_ = 0;
  std::size_t position_ = 0;
};

/// Copies `found` into `value` when both are there and `value` is still empty.
void FillFrom(const std::optional<std::string_view>& found, std::string* value, const char* message,
              Logger* logger) {
  if (value == nullptr || !value->empty() || !found) return;
  *value = *found;
  Utils::LogMessage(logger, message, *value);
}

/// The identifiers asked for; those that are not wanted are null.
struct WantedIdentifiers {
  std::string* companyId;
  std::string* groupId;
  std::string* endpointId;
};

void TakeIdentifiers(const Value& configuration, const WantedIdentifiers& wanted, Logger* logger) {
  const Value* const id = json::FindObject(configuration, "id");
  if (id == nullptr) return;
  if (const Value* const customData = json::FindObject(*id, "customdata")) {
    FillFrom(json::FindText(*customData, "ComputersFolder"), wanted.groupId,
             "Group id is: ", logger);
  }
  FillFrom(json::FindText(*id, "hwid"), wanted.endpointId, "Hardware id is: ", logger);
  FillFrom(json::FindText(*id, "custid"), wanted.companyId, "Company id is: ", logger);
}

/// Fills the identifiers that are still empty from an open agent configuration file.
/// @return the code
int ReadConfiguration(platform::InputFile& file, const WantedIdentifiers& wanted, Logger* logger) {
  try {
    FileStream stream(file);
    json::Document configuration;
    if (!configuration.Read(stream)) {
      file.Close();
      Utils::LogMessage(logger, "Invalid agcfJso file");
      return kEBADF;
    }
    TakeIdentifiers(configuration, wanted, logger);
    file.Close();
    Utils::LogMessage(logger, "Configuration file closed");
    return kSuccess;
  } catch (...) {
    file.Close();
    Utils::LogMessage(logger, "Exception happened while configuration file was opened. Read fault");
    return kEBADF;
  }
}

/// Replaces `value`, when it is wanted, with the member `name` of the SDK's answer.
void TakeFromAnswer(const Value& answer, const char* name, std::string* value,
                    const char* searchMessage, const char* foundMessage, Logger* logger) {
  if (value == nullptr) return;
  Utils::LogMessage(logger, searchMessage);
  value->clear();
  FillFrom(json::FindText(answer, name), value, foundMessage, logger);
}

}  // namespace

int KXTool::GetSLIdentity(std::string* endpointId, std::string* companyId, Logger* logger) {
  Utils::LogMessage(logger, "Getting SL Identity using the wrapper method");
  rapidjson::Document answer;
  int code =
      ExecuteAgentSDKMethodWrapper("kx.Product.Configuration.GetSkyloftIdentity", answer, logger);
  if (code != kSuccess) {
    Utils::LogMessage(logger, "Failed to retrieve SL Identity with wrapper method: ", code);
    return code;
  }
  Utils::LogMessage(logger, "SL Identity retrieved successfully");
  try {
    TakeFromAnswer(answer, "endpointID", endpointId,
                   "Search for endpointId in the received response", "HwId found: ", logger);
    TakeFromAnswer(answer, "companyID", companyId, "Search for companyID in the received response",
                   "custId found: ", logger);
  } catch (...) {
    Utils::LogMessage(logger, "Invalid JSON Received");
    code = kESRCH;
  }
  Utils::LogMessage(logger, "Finished retrieving SL Identity with error code: ", code);
  return code;
}

int KXTool::GetEndpointInformation(std::string* companyId, std::string* groupId,
                                   std::string* endpointId, const char* agcfFilePath,
                                   bool useIdentityMethod, Logger* logger) {
  const WantedIdentifiers wanted = {companyId, groupId, endpointId};
  if (companyId == nullptr && groupId == nullptr && endpointId == nullptr) {
    Utils::LogMessage(logger, "Empty values are entered");
    return kEINVAL;
  }
  Utils::LogMessage(logger, "Clearing non nullable values");
  for (std::string* const value : {companyId, groupId, endpointId}) {
    if (value != nullptr) value->clear();
  }
  if (useIdentityMethod) {
    Utils::LogMessage(logger, "Get SL Identity");
    static_cast<void>(GetSLIdentity(endpointId, companyId, logger));
  }
  if (const int error = platform::CheckAccess(agcfFilePath, platform::AccessTest::kReadable);
      error != 0) {
    Utils::LogMessage(logger, "Cannot access agcfJso file path");
    return error;
  }
  platform::InputFile file;
  if (file.Open(agcfFilePath) == 0) {
    if (const int code = ReadConfiguration(file, wanted, logger); code != kSuccess) return code;
  }
  Utils::LogMessage(logger, "Finished reading from Agcf configuration file");
  return kSuccess;
}
