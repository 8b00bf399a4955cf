#include "platform/linux/code_signing/subject_text.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include "platform/linux/code_signing/libcrypto.h"

namespace platform::code_signing {
namespace {

enum class Encoding { kAscii, kUtf8, kLatin1, kUtf16, kNotText };

Encoding EncodingOf(int type) {
  switch (type) {
    case V_ASN1_PRINTABLESTRING:
    case V_ASN1_IA5STRING:
      return Encoding::kAscii;
    case V_ASN1_UTF8STRING:
    case V_ASN1_GENERALSTRING:
    case V_ASN1_UNIVERSALSTRING:
      return Encoding::kUtf8;
    case V_ASN1_T61STRING:
    case V_ASN1_VIDEOTEXSTRING:
    case V_ASN1_VISIBLESTRING:
      return Encoding::kLatin1;
    case V_ASN1_BMPSTRING:
      return Encoding::kUtf16;
    default:
      return Encoding::kNotText;
  }
}

// Converts with libcrypto, which also validates the bytes.
std::optional<std::string> ConvertToUtf8(std::string_view bytes, int type) {
  const std::unique_ptr<ASN1_STRING, void (*)(ASN1_STRING*)> source(ASN1_STRING_type_new(type),
                                                                    ASN1_STRING_free);
  if (!source || ASN1_STRING_set(source.get(), bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw std::bad_alloc();
  }
  unsigned char* converted = nullptr;
  const int length = ASN1_STRING_to_UTF8(&converted, source.get());
  const BytesPtr owner(converted);
  if (length < 0) {
    RequireMemory();
    return std::nullopt;
  }
  return std::string(reinterpret_cast<char*>(converted), static_cast<std::size_t>(length));
}

bool IsAscii(std::string_view bytes) {
  return std::none_of(bytes.begin(), bytes.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

std::string HexList(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string list;
  for (const char c : bytes) {
    if (!list.empty()) list += ' ';
    const auto byte = static_cast<unsigned char>(c);
    list += kDigits[byte >> 4U];
    list += kDigits[byte & 0xFU];
  }
  return list;
}

std::optional<std::string> Decode(std::string_view bytes, Encoding encoding) {
  switch (encoding) {
    case Encoding::kAscii:
      if (!IsAscii(bytes)) return std::nullopt;
      return std::string(bytes);
    case Encoding::kUtf8:
      return ConvertToUtf8(bytes, V_ASN1_UTF8STRING);
    case Encoding::kLatin1:
      return ConvertToUtf8(bytes, V_ASN1_T61STRING);
    case Encoding::kUtf16:
      return ConvertToUtf8(bytes, V_ASN1_BMPSTRING);
    case Encoding::kNotText:
      break;
  }
  return std::nullopt;
}

}  // namespace

std::string SubjectText(const ASN1_STRING& value) {
  const std::string_view all(reinterpret_cast<const char*>(ASN1_STRING_get0_data(&value)),
                             static_cast<std::size_t>(ASN1_STRING_length(&value)));
  const Encoding encoding = EncodingOf(ASN1_STRING_type(&value));
  std::string_view text = all;
  // Some encoders count a terminating zero as part of the text.
  if (encoding != Encoding::kUtf16 && !text.empty() && text.back() == '\0') text.remove_suffix(1);
  return Decode(text, encoding).value_or(HexList(all));
}

}  // namespace platform::code_signing
