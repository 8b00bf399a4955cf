#include "platform/linux/code_signing/requirement_lexer.h"

#include <cstddef>
#include <utility>

namespace platform::code_signing {
namespace {

using Kind = RequirementToken::Kind;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int HexadecimalValue(char c) {
  if (IsDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

class Lexer {
 public:
  explicit Lexer(std::string_view text) : text_(text) {}

  /// Reads the next token. @return false when there is none.
  bool Next(RequirementToken& token) {
    token = {};
    SkipBlanksAndComments();
    if (position_ == text_.size()) return true;
    const char c = text_[position_];
    if (c == '"') return ReadString(token);
    if (c == 'H' && Peek(1) == '"') return ReadHash(token);
    if (IsLetter(c)) return ReadWord(token);
    if (IsDigit(c)) return ReadNumber(token);
    return ReadSymbol(token);
  }

 private:
  char Peek(std::size_t distance) const {
    return position_ + distance < text_.size() ? text_[position_ + distance] : '\0';
  }

  void SkipPast(std::string_view end) {
    const std::size_t found = text_.find(end, position_ + 1);
    position_ = found == text_.npos ? text_.size() : found + end.size();
  }

  void SkipBlanksAndComments() {
    for (;;) {
      const char c = Peek(0);
      if (c == ' ' || c == '\n' || c == '\t') {
        ++position_;
      } else if (c == '#' || (c == '/' && Peek(1) == '/')) {
        SkipPast("\n");
      } else if (c == '/' && Peek(1) == '*' && text_.find("*/", position_ + 2) != text_.npos) {
        ++position_;
        SkipPast("*/");
      } else {
        return;
      }
    }
  }

  bool ReadString(RequirementToken& token) {
    token.kind = Kind::kString;
    for (++position_; position_ < text_.size(); ++position_) {
      char c = text_[position_];
      if (c == '"') return ++position_, true;
      if (c == '\\') {
        c = Peek(1);
        if (c != '"') return false;
        ++position_;
      }
      token.text += c;
    }
    return false;
  }

  bool ReadHash(RequirementToken& token) {
    token.kind = Kind::kHash;
    for (position_ += 2; Peek(0) != '"'; position_ += 2) {
      const int high = HexadecimalValue(Peek(0));
      const int low = HexadecimalValue(Peek(1));
      if (high < 0 || low < 0) return false;
      token.text += static_cast<char>(high << 4 | low);
    }
    ++position_;
    return true;
  }

  bool ReadWord(RequirementToken& token) {
    token.kind = Kind::kWord;
    while (IsLetter(Peek(0)) || IsDigit(Peek(0)) ||
           (Peek(0) == '.' && (IsLetter(Peek(1)) || IsDigit(Peek(1))))) {
      token.text += text_[position_++];
    }
    return true;
  }

  bool ReadNumber(RequirementToken& token) {
    token.kind = Kind::kNumber;
    while (IsDigit(Peek(0))) token.text += text_[position_++];
    return true;
  }

  bool ReadSymbol(RequirementToken& token) {
    constexpr std::string_view kSymbols = "()[]=!-;";
    const char c = text_[position_++];
    if (kSymbols.find(c) == kSymbols.npos) return false;
    if (c == '=' && Peek(0) == '=') ++position_;
    token.kind = Kind::kSymbol;
    token.text = c;
    return true;
  }

  std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace

std::optional<std::vector<RequirementToken>> SplitRequirement(std::string_view text) {
  Lexer lexer(text);
  std::vector<RequirementToken> tokens;
  do {
    RequirementToken token;
    if (!lexer.Next(token)) return std::nullopt;
    tokens.push_back(std::move(token));
  } while (tokens.back().kind != Kind::kEnd);
  return tokens;
}

}  // namespace platform::code_signing
