#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "app/error_codes.h"
#include "json/document.h"
#include "sdk/envelope.h"

namespace {

constexpr char kBefore[] = "before";

void Expect(bool condition) {
  if (!condition) std::abort();
}

/// Whether an exponent in `text` may overflow RapidJSON's number conversion.
bool HasLongExponent(const std::string& text) {
  std::size_t digits = 0;
  for (const char character : text) {
    digits = std::isdigit(static_cast<unsigned char>(character)) != 0 ? digits + 1 : 0;
    if (digits > 8) return true;
  }
  return false;
}

/// Requires that our parser accepts exactly what RapidJSON's accepts.
void CompareParsers(const std::string& text) {
  json::Document ours;
  rapidjson::StringStream stream(text.c_str());
  const bool isRead = ours.Read(stream);
  Expect(isRead || ours.IsNull());
  if (HasLongExponent(text)) return;
  rapidjson::Document theirs;
  theirs.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
  Expect(isRead == !theirs.HasParseError());
  Expect(!isRead || ours.GetType() == theirs.GetType());
}

void Unpack(const std::string& text, const std::string& method) {
  rapidjson::Document output;
  output.SetString(kBefore);
  const long long error = sdk::UnpackAnswer(text, method, output, nullptr);
  const bool isUntouched = output.IsString() && output == kBefore;
  Expect(isUntouched || (error == kSuccess && output.IsObject()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  CompareParsers(text);
  for (const char* const method :
       {"Product.GetStatus", "FileScan.OnDemand.RunFullScan", "NoDot", ".", ""}) {
    Unpack(text, method);
  }
  // The input as the result of a method.
  Unpack(R"({"response":{"data":{"Product":[)" + text + "]}}}", "Product.GetStatus");
  Unpack(R"({"response":{"data":{"Product":[{"error":0,"output":)" + text + "}]}}}",
         "Product.GetStatus");
  return 0;
}
