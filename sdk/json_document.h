#ifndef SDK_JSON_DOCUMENT_H_
#define SDK_JSON_DOCUMENT_H_

#include <rapidjson/document.h>
#include <rapidjson/reader.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <system_error>

namespace sdk {

/// A JSON document that can be read from any text without harm. It parses without recursion, so
/// that no nesting exhausts the stack, and turns numbers into values itself: RapidJSON 1.1.0 lets
/// an int overflow when a large negative exponent follows a long fraction.
class JsonDocument : public rapidjson::Document {
 public:
  using rapidjson::Document::Document;

  /// Parses all of `stream`. @return false when it is not JSON; the document is then untouched.
  template <typename Stream>
  bool Read(Stream& stream) {
    constexpr unsigned kFlags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
    rapidjson::Reader reader;
    auto parse = [&](rapidjson::Document&) {
      return !reader.Parse<kFlags>(stream, *this).IsError();
    };
    Populate(parse);
    return !reader.HasParseError();
  }

  /// Called by the parser for each number. `text` is valid JSON and ends in a NUL.
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    const char* const end = text + length;
    std::int64_t number = 0;
    if (IsWhole(std::from_chars(text, end, number), end)) return Int64(number);
    std::uint64_t bigNumber = 0;
    if (IsWhole(std::from_chars(text, end, bigNumber), end)) return Uint64(bigNumber);
    return Double(std::strtod(text, nullptr));
  }

 private:
  static bool IsWhole(std::from_chars_result result, const char* end) {
    return result.ec == std::errc() && result.ptr == end;
  }
};

}  // namespace sdk

#endif  // SDK_JSON_DOCUMENT_H_
