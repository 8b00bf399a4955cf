#include "platform/linux/code_signing/ber_extent.h"

#include <cstddef>
#include <cstdint>

namespace platform::code_signing {
namespace {

constexpr int kMaxNesting = 64;

// Longer lengths do not occur and would not fit into the position.
constexpr unsigned kMaxLengthBytes = 7;

class BerParser {
 public:
  explicit BerParser(std::string_view bytes) : bytes_(bytes) {}

  // Only values of indefinite length must be entered to find their end.
  BerExtent FindExtent() {
    int openValues = 0;
    do {
      Header header;
      const BerExtent extent = ReadHeader(header);
      if (extent != BerExtent::kComplete) return extent;
      if (header.endOfContents && openValues > 0) {
        --openValues;
      } else if (header.indefinite) {
        if (++openValues > kMaxNesting) return BerExtent::kMalformed;
      } else if (header.length > bytes_.size() - position_) {
        return BerExtent::kTruncated;
      } else {
        position_ += static_cast<std::size_t>(header.length);
      }
    } while (openValues > 0);
    return BerExtent::kComplete;
  }

 private:
  struct Header {
    bool endOfContents = false;
    bool indefinite = false;
    std::uint64_t length = 0;
  };

  BerExtent ReadHeader(Header& header) {
    std::uint8_t tag = 0;
    std::uint8_t first = 0;
    if (!ReadByte(tag)) return BerExtent::kTruncated;
    for (std::uint8_t more = 0x80; (tag & 0x1FU) == 0x1FU && (more & 0x80U) != 0;) {
      if (!ReadByte(more)) return BerExtent::kTruncated;
    }
    if (!ReadByte(first)) return BerExtent::kTruncated;
    header.endOfContents = tag == 0 && first == 0;
    header.indefinite = first == 0x80;
    const bool constructed = (tag & 0x20U) != 0;
    if (header.indefinite) return constructed ? BerExtent::kComplete : BerExtent::kMalformed;
    return ReadLength(first, header.length);
  }

  BerExtent ReadLength(std::uint8_t first, std::uint64_t& length) {
    length = first;
    if (first < 0x80) return BerExtent::kComplete;
    const unsigned count = first & 0x7FU;
    if (count > kMaxLengthBytes) return BerExtent::kMalformed;
    length = 0;
    for (unsigned i = 0; i < count; ++i) {
      std::uint8_t next = 0;
      if (!ReadByte(next)) return BerExtent::kTruncated;
      length = length << 8U | next;
    }
    return BerExtent::kComplete;
  }

  bool ReadByte(std::uint8_t& byte) {
    if (position_ == bytes_.size()) return false;
    byte = static_cast<std::uint8_t>(bytes_[position_++]);
    return true;
  }

  std::string_view bytes_;
  std::size_t position_ = 0;
};

}  // namespace

BerExtent FindBerExtent(std::string_view bytes) { return BerParser(bytes).FindExtent(); }

}  // namespace platform::code_signing
