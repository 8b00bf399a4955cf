#ifndef JSON_DOCUMENT_H_
#define JSON_DOCUMENT_H_

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <system_error>

/// RapidJSON never checks what std::malloc() and std::realloc() return. Code in its namespace finds
/// this `std` first, where both throw std::bad_alloc. Include this header before any
/// RapidJSON header except fwd.h.
namespace rapidjson::std {

using namespace ::std;

inline void* OrThrow(void* memory) {
  if (memory == nullptr) throw bad_alloc();
  return memory;
}

// NOLINTBEGIN(readability-identifier-naming)
inline void* malloc(size_t size) { return OrThrow(::std::malloc(size)); }
inline void* realloc(void* memory, size_t size) { return OrThrow(::std::realloc(memory, size)); }
// NOLINTEND(readability-identifier-naming)

}  // namespace rapidjson::std

#include <rapidjson/document.h>
#include <rapidjson/reader.h>

namespace json {

/// A JSON document that can safely be parsed from any text. It parses without recursion, so that
/// nesting cannot exhaust the stack, and converts numbers itself: RapidJSON 1.1.0 overflows an int
/// when a large negative exponent follows a long fraction.
class Document : public rapidjson::Document {
 public:
  using rapidjson::Document::Document;

  /// Parses all of `stream`. @return false when it is not JSON; the document is then untouched.
  /// @throws std::bad_alloc
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

}  // namespace json

#endif  // JSON_DOCUMENT_H_
