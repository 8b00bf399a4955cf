#include "platform/linux/code_signing/subject_text.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>

#include <string>

namespace platform::code_signing {
namespace {

using namespace std::string_literals;

std::string Text(int type, const std::string& bytes) {
  ASN1_STRING* const value = ASN1_STRING_type_new(type);
  ASN1_STRING_set(value, bytes.data(), static_cast<int>(bytes.size()));
  std::string text = SubjectText(*value);
  ASN1_STRING_free(value);
  return text;
}

TEST(SubjectTextTest, DecodesEachStringType) {
  EXPECT_EQ(Text(V_ASN1_PRINTABLESTRING, "Corvane"), "Corvane");
  EXPECT_EQ(Text(V_ASN1_IA5STRING, "a@b"), "a@b");
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "Caf\xC3\xA9"), "Caf\xC3\xA9");
  EXPECT_EQ(Text(V_ASN1_UNIVERSALSTRING, "Caf\xC3\xA9"), "Caf\xC3\xA9");
  EXPECT_EQ(Text(V_ASN1_T61STRING, "Caf\xE9"), "Caf\xC3\xA9");
  EXPECT_EQ(Text(V_ASN1_BMPSTRING, "\0C\0\xE9"s), "C\xC3\xA9");
}

TEST(SubjectTextTest, ShowsIllegalBytesInHexadecimal) {
  EXPECT_EQ(Text(V_ASN1_PRINTABLESTRING, "a\xE9"), "61 E9");
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "\xFF\x0A"), "FF 0A");
  EXPECT_EQ(Text(V_ASN1_BMPSTRING, "\0C\0"s), "00 43 00");
}

TEST(SubjectTextTest, DropsOneTrailingZero) {
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "name\0"s), "name");
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "name\0\0"s), "name\0"s);
  EXPECT_EQ(Text(V_ASN1_PRINTABLESTRING, ""), "");
}

}  // namespace
}  // namespace platform::code_signing
