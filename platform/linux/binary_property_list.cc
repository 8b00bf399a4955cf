#include <cstring>

#include "platform/linux/property_list.h"
#include "platform/linux/property_list_readers.h"

namespace platform {
namespace {

using Kind = PropertyListValue::Kind;

/// Reads a big-endian number of at most 8 bytes.
std::uint64_t Number(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

/// Moves the first `size` bytes of `rest` to `bytes`.
/// @return false when there are fewer.
bool Cut(std::string_view& rest, std::uint64_t size, std::string_view& bytes) {
  if (size > rest.size()) return false;
  bytes = rest.substr(0, size);
  rest.remove_prefix(size);
  return true;
}

template <typename Bits, typename Real>
double ReadReal(std::string_view bytes) {
  static_assert(sizeof(Bits) == sizeof(Real));
  const Bits bits = static_cast<Bits>(Number(bytes));
  Real real = 0;
  std::memcpy(&real, &bits, sizeof real);
  return real;
}

bool ReadUtf16(std::string_view bytes, std::string& text) {
  const auto unit = [&](std::size_t i) {
    return static_cast<std::uint32_t>(Number(bytes.substr(i, 2)));
  };
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    std::uint32_t character = unit(i);
    const std::uint32_t next = i + 2 < bytes.size() ? unit(i + 2) : 0;
    if (character >> 10 == 0x36 && next >> 10 == 0x37) {  // a surrogate pair
      character = 0x10000 + ((character & 0x3FF) << 10 | (next & 0x3FF));
      i += 2;
    }
    if (!AppendUtf8(character, text)) return false;
  }
  return true;
}

class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, PropertyListBudget& budget)
      : bytes_(bytes), budget_(budget) {}

  bool Read(PropertyListValue& list) {
    constexpr std::size_t kTrailerSize = 32;
    if (bytes_.size() < kBinaryPropertyListMagic.size() + kTrailerSize) return false;
    const std::string_view trailer = bytes_.substr(bytes_.size() - kTrailerSize);
    bytes_.remove_suffix(kTrailerSize);
    offsetSize_ = Number(trailer.substr(6, 1));
    referenceSize_ = Number(trailer.substr(7, 1));
    const std::uint64_t count = Number(trailer.substr(8, 8));
    const std::uint64_t table = Number(trailer.substr(24, 8));
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8 ||
        table > bytes_.size() || count > (bytes_.size() - table) / offsetSize_) {
      return false;
    }
    table_ = bytes_.substr(table, count * offsetSize_);
    bytes_ = bytes_.substr(0, table);
    return ReadObject(Number(trailer.substr(16, 8)), list);
  }

 private:
  /// Reads an object. Called once for each reference to it.
  bool ReadObject(std::uint64_t number, PropertyListValue& value) {
    if (number >= table_.size() / offsetSize_) return false;
    const std::uint64_t offset = Number(table_.substr(number * offsetSize_, offsetSize_));
    if (offset >= bytes_.size()) return false;
    std::string_view rest = bytes_.substr(offset);
    std::uint64_t type = 0;
    std::uint64_t size = 0;
    if (!ReadMarker(rest, type, size)) return false;
    if (type < 4 || type == 8) return ReadFixed(rest, type, size, value);
    if (size == 0xF) {
      std::uint64_t sizeType = 0;
      std::string_view bytes;
      if (!ReadMarker(rest, sizeType, size) || sizeType != 1 || size > 3 ||
          !Cut(rest, std::uint64_t{1} << size, bytes)) {
        return false;
      }
      size = Number(bytes);
    }
    return type < 8 ? ReadText(rest, type, size, value) : ReadContainer(rest, type, size, value);
  }

  static bool ReadMarker(std::string_view& rest, std::uint64_t& type, std::uint64_t& size) {
    std::string_view marker;
    if (!Cut(rest, 1, marker)) return false;
    type = Number(marker) >> 4;
    size = Number(marker) & 0xF;
    return true;
  }

  /// Reads a boolean, number, date or identifier.
  static bool ReadFixed(std::string_view rest, std::uint64_t type, std::uint64_t size,
                        PropertyListValue& value) {
    constexpr std::uint64_t kBoolean = 0;
    constexpr std::uint64_t kInteger = 1;
    constexpr std::uint64_t kReal = 2;
    constexpr std::uint64_t kIdentifier = 8;
    std::string_view bytes;
    if (type == kBoolean) {
      value.kind = Kind::kBoolean;
      value.boolean = size == 9;
      return size == 8 || size == 9;
    }
    if (type == kIdentifier) return Cut(rest, size + 1, bytes);
    if (size > 4 || !Cut(rest, std::uint64_t{1} << size, bytes)) return false;
    if (type == kInteger) {
      value.kind = Kind::kInteger;
      value.integer = static_cast<std::int64_t>(Number(bytes));
      return true;
    }
    value.kind = type == kReal ? Kind::kReal : Kind::kDate;
    if (type != kReal) return size == 3;
    value.real =
        size == 2 ? ReadReal<std::uint32_t, float>(bytes) : ReadReal<std::uint64_t, double>(bytes);
    return size == 2 || size == 3;
  }

  /// Reads data or text.
  bool ReadText(std::string_view rest, std::uint64_t type, std::uint64_t size,
                PropertyListValue& value) {
    constexpr std::uint64_t kData = 4;
    constexpr std::uint64_t kAscii = 5;
    constexpr std::uint64_t kUtf16 = 6;
    std::string_view bytes;
    if (type > kUtf16 || size > rest.size() ||
        !Cut(rest, type == kUtf16 ? size * 2 : size, bytes) || !budget_.Take(bytes.size() * 2)) {
      return false;
    }
    value.kind = type == kData ? Kind::kData : Kind::kString;
    if (type == kUtf16) return ReadUtf16(bytes, value.text);
    value.text = bytes;
    return type != kAscii || value.text.find('\0') == value.text.npos;
  }

  bool ReadContainer(std::string_view rest, std::uint64_t type, std::uint64_t size,
                     PropertyListValue& value) {
    constexpr std::uint64_t kArray = 0xA;
    constexpr std::uint64_t kSet = 0xC;
    constexpr std::uint64_t kDictionary = 0xD;
    const bool isDictionary = type == kDictionary;
    if ((!isDictionary && type != kArray && type != kSet) || size > rest.size() ||
        size * (isDictionary ? 2 : 1) > rest.size() / referenceSize_ ||
        ++depth_ > kMaxPropertyListDepth) {
      return false;
    }
    const auto reference = [&](std::uint64_t i) {
      return Number(rest.substr(i * referenceSize_, referenceSize_));
    };
    value.kind = isDictionary ? Kind::kDictionary : Kind::kArray;
    for (std::uint64_t i = 0; i < size; ++i) {
      if (!isDictionary) {
        if (!budget_.Add(value.elements, {}) || !ReadObject(reference(i), value.elements.back())) {
          return false;
        }
        continue;
      }
      PropertyListValue key;
      if (!ReadObject(reference(i), key) || key.kind != Kind::kString ||
          !budget_.Add(value.members, {std::move(key.text), PropertyListValue()}) ||
          !ReadObject(reference(size + i), value.members.back().second)) {
        return false;
      }
    }
    MergeRepeatedKeys(value.members);
    --depth_;
    return true;
  }

  std::string_view bytes_;  ///< the objects and everything before them
  PropertyListBudget& budget_;
  std::string_view table_;  ///< of their offsets
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::size_t depth_ = 0;
};

}  // namespace

bool ReadBinaryPropertyList(std::string_view bytes, PropertyListBudget& budget,
                            PropertyListValue& list) {
  return BinaryReader(bytes, budget).Read(list);
}

}  // namespace platform
