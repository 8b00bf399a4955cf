#ifndef PLATFORM_LINUX_CODE_SIGNING_BYTE_READER_H_
#define PLATFORM_LINUX_CODE_SIGNING_BYTE_READER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace platform::code_signing {

enum class ByteOrder { kBig, kLittle };

/// Reads numbers and pieces at offsets that may come from a hostile file. No sum of an offset and a
/// length overflows, and nothing outside the bytes is read.
class ByteReader {
 public:
  ByteReader(std::string_view bytes, ByteOrder order) : bytes_(bytes), order_(order) {}

  std::uint64_t Size() const { return bytes_.size(); }

  bool Contains(std::uint64_t offset, std::uint64_t length) const {
    return offset <= bytes_.size() && length <= bytes_.size() - offset;
  }

  /// Returns the number at `offset`; 0 when it is not within the bytes.
  std::uint8_t U8(std::uint64_t offset) const { return static_cast<std::uint8_t>(U(offset, 1)); }
  std::uint32_t U32(std::uint64_t offset) const { return static_cast<std::uint32_t>(U(offset, 4)); }
  std::uint64_t U64(std::uint64_t offset) const { return U(offset, 8); }

  /// @return the piece; nothing when it is not within the bytes.
  std::optional<std::string_view> Piece(std::uint64_t offset, std::uint64_t length) const {
    if (!Contains(offset, length)) return std::nullopt;
    return bytes_.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
  }

  /// @return the text at `offset`, without the NUL that must end it within the bytes.
  std::optional<std::string_view> TextAt(std::uint64_t offset) const {
    if (!Contains(offset, 1)) return std::nullopt;
    const std::string_view rest = bytes_.substr(static_cast<std::size_t>(offset));
    const std::size_t end = rest.find('\0');
    if (end == std::string_view::npos) return std::nullopt;
    return rest.substr(0, end);
  }

 private:
  std::uint64_t U(std::uint64_t offset, std::uint32_t width) const {
    if (!Contains(offset, width)) return 0;
    std::uint64_t number = 0;
    for (std::uint32_t i = 0; i < width; ++i) {
      const std::uint32_t position = order_ == ByteOrder::kBig ? i : width - 1 - i;
      number = number << 8U | static_cast<std::uint8_t>(bytes_[offset + position]);
    }
    return number;
  }

  std::string_view bytes_;
  ByteOrder order_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_BYTE_READER_H_
