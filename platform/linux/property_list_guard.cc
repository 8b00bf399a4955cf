#include "platform/linux/property_list_guard.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace platform {
namespace {

constexpr std::size_t kMaximumDepth = 256;
constexpr std::size_t kMaximumValues = std::size_t{1} << 19;
constexpr std::uint64_t kMaximumExpandedSize = std::uint64_t{64} << 20;
constexpr std::uint64_t kMaximumEntityWork = std::uint64_t{1} << 32;
constexpr std::uint64_t kMaximumKeyWork = std::uint64_t{1} << 26;

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

/// Reads the markup of an XML list from one "<" to the next, keeping count.
class XmlScan {
 public:
  explicit XmlScan(std::string_view text) : rest_(text) {}

  bool IsWithinLimits() {
    while (SkipText()) {
      if (StartsWith(rest_, "<!--")) {
        SkipPast("-->", 4);
      } else if (StartsWith(rest_, "<![CDATA[")) {
        SkipPast("]]>", 9);
      } else if (!SkipTag()) {
        return false;
      }
    }
    while (!open_.empty()) CloseContainer();
    return !isListOpen_ && entityWork_ <= kMaximumEntityWork && keyWork_ <= kMaximumKeyWork;
  }

 private:
  /// Moves to the next "<". libplist moves the rest of a text for each entity in it.
  bool SkipText() {
    const std::size_t length = std::min(rest_.find('<'), rest_.size());
    const std::string_view text = rest_.substr(0, length);
    entityWork_ += static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '&')) * length;
    rest_.remove_prefix(length);
    return !rest_.empty();
  }

  void SkipPast(std::string_view end, std::size_t from) {
    const std::size_t found = rest_.find(end, from);
    rest_.remove_prefix(found == rest_.npos ? rest_.size() : found + end.size());
  }

  /// Moves behind a tag, processing instruction or document type; their quoted parts may hold any
  /// character. A document type with declarations of its own is refused.
  bool SkipTag() {
    const std::string_view name = rest_.substr(1, rest_.find_first_of(" \r\n\t<>", 1) - 1);
    std::size_t end = 1;
    while (end < rest_.size() && rest_[end] != '>') {
      if (rest_[end] == '[' && name == "!DOCTYPE") return false;
      if (rest_[end] == '"') end = std::min(rest_.find('"', end + 1), rest_.size() - 1);
      ++end;
    }
    const bool isWhole = end < rest_.size();
    const char beforeEnd = rest_[end - 1];
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    if (name == "plist") isListOpen_ = true;
    if (name == "/plist" && isWhole) isListOpen_ = false;
    if (StartsWith(name, "?")) return beforeEnd == '?';
    if (StartsWith(name, "/")) {
      if ((name == "/dict" || name == "/array") && !open_.empty()) CloseContainer();
      return true;
    }
    if ((name == "dict" || name == "array") && beforeEnd != '/') open_.emplace_back();
    if (name == "key" && !open_.empty()) open_.back().push_back(HashOfKey());
    return open_.size() <= kMaximumDepth && ++values_ <= kMaximumValues;
  }

  /// The hash by which libplist finds the key whose text comes next; the same one for all keys that
  /// are not written plainly.
  std::uint32_t HashOfKey() const {
    const std::size_t length = std::min(rest_.find('<'), rest_.size());
    const std::string_view key = rest_.substr(0, length);
    if (key.find('&') != key.npos || StartsWith(rest_.substr(length), "<!")) return 0;
    std::uint32_t hash = 5381;
    for (const char c : key) hash = hash * 33 + static_cast<std::uint32_t>(c);
    return hash;
  }

  /// Adds up what it takes libplist to look up each key among those of its bucket, and to replace
  /// the value of a key that comes again.
  void CloseContainer() {
    constexpr std::uint32_t kBuckets = 4096;
    std::vector<std::uint32_t>& hashes = open_.back();
    std::sort(hashes.begin(), hashes.end(), [](std::uint32_t a, std::uint32_t b) {
      return std::make_pair(a % kBuckets, a) < std::make_pair(b % kBuckets, b);
    });
    std::size_t inBucket = 0;
    for (std::size_t i = 1; i < hashes.size(); ++i) {
      inBucket = hashes[i] % kBuckets == hashes[i - 1] % kBuckets ? inBucket + 1 : 0;
      keyWork_ += inBucket + (hashes[i] == hashes[i - 1] ? hashes.size() : 0);
    }
    open_.pop_back();
  }

  std::string_view rest_;
  std::vector<std::vector<std::uint32_t>> open_;  ///< containers, as the hashes of their keys
  bool isListOpen_ = false;                       ///< "plist" itself has begun and not ended
  std::size_t values_ = 0;
  std::uint64_t entityWork_ = 0;
  std::uint64_t keyWork_ = 0;
};

/// Follows the references of a binary list from its top, as often as they occur.
class BinaryScan {
 public:
  explicit BinaryScan(std::string_view bytes) : bytes_(bytes) {}

  bool IsWithinLimits() {
    if (!ReadTrailer()) return false;
    while (!pending_.empty()) {
      const Reference reference = pending_.back();
      pending_.pop_back();
      if (!Visit(reference)) return false;
    }
    return true;
  }

 private:
  struct Reference {
    std::uint64_t object;
    std::size_t depth;
  };

  /// The big-endian number of `width` bytes at `offset`; both must lie within the list.
  std::uint64_t Number(std::uint64_t offset, std::uint64_t width) const {
    std::uint64_t number = 0;
    for (const char byte : bytes_.substr(offset, width)) {
      number = number << 8 | static_cast<unsigned char>(byte);
    }
    return number;
  }

  bool ReadTrailer() {
    constexpr std::size_t kHeaderSize = 8;
    constexpr std::size_t kTrailerSize = 32;
    if (bytes_.size() < kHeaderSize + kTrailerSize) return false;
    const std::uint64_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = Number(trailer + 6, 1);
    referenceSize_ = Number(trailer + 7, 1);
    objectCount_ = Number(trailer + 8, 8);
    table_ = Number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      return false;
    }
    if (table_ < kHeaderSize || table_ > trailer ||
        objectCount_ > (trailer - table_) / offsetSize_) {
      return false;
    }
    pending_.push_back({Number(trailer + 16, 8), 1});
    return true;
  }

  /// Counts one value and queues what it refers to.
  bool Visit(const Reference& reference) {
    if (++values_ > kMaximumValues || reference.depth > kMaximumDepth) return false;
    if (reference.object >= objectCount_) return false;
    std::uint64_t offset = Number(table_ + reference.object * offsetSize_, offsetSize_);
    if (offset >= table_) return false;
    const std::uint64_t type = Number(offset, 1) & 0xF0;
    std::uint64_t size = Number(offset, 1) & 0x0F;
    ++offset;
    if (type < 0x40 || type == 0x80) return true;  // a number, boolean, date or identifier
    if (size == 0x0F && !ReadSize(offset, size)) return false;
    const std::uint64_t room = table_ - offset;
    if (size > room) return false;
    if (type < 0x80) return VisitText(type, offset, size, room);

    constexpr std::uint64_t kDictionary = 0xD0;
    const std::uint64_t references = type == kDictionary ? size * 2 : size;
    if (references > room / referenceSize_ || references > kMaximumValues) return false;
    if (pending_.size() + references > kMaximumValues) return false;
    for (std::uint64_t i = 0; i < references; ++i) {
      pending_.push_back(
          {Number(offset + i * referenceSize_, referenceSize_), reference.depth + 1});
    }
    return true;
  }

  /// Counts the bytes of data or of a string. libplist aborts at UTF-16 keys with a zero in them.
  bool VisitText(std::uint64_t type, std::uint64_t offset, std::uint64_t size, std::uint64_t room) {
    constexpr std::uint64_t kUtf16 = 0x60;
    expandedSize_ += size * 4;
    if (expandedSize_ > kMaximumExpandedSize) return false;
    if (type != kUtf16) return true;
    if (size > room / 2) return false;
    for (std::uint64_t i = 0; i < size; ++i) {
      if (Number(offset + 2 * i, 2) == 0) return false;
    }
    return true;
  }

  /// Reads a size that is written as an integer object, and moves `offset` behind it.
  bool ReadSize(std::uint64_t& offset, std::uint64_t& size) const {
    if (offset >= table_ || (Number(offset, 1) & 0xF0) != 0x10) return false;
    const std::uint64_t exponent = Number(offset, 1) & 0x0F;
    ++offset;
    if (exponent > 3 || table_ - offset < std::uint64_t{1} << exponent) return false;
    size = Number(offset, std::uint64_t{1} << exponent);
    offset += std::uint64_t{1} << exponent;
    return true;
  }

  std::string_view bytes_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t table_ = 0;
  std::vector<Reference> pending_;
  std::size_t values_ = 0;
  std::uint64_t expandedSize_ = 0;
};

}  // namespace

bool IsWithinPropertyListLimits(std::string_view bytes) {
  return StartsWith(bytes, "bplist") ? BinaryScan(bytes).IsWithinLimits()
                                     : XmlScan(bytes).IsWithinLimits();
}

}  // namespace platform
