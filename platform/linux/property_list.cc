#include "platform/linux/property_list.h"

#include <dlfcn.h>
#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/files.h"
#include "platform/linux/property_list_guard.h"

namespace platform {
namespace {

/// The functions of libplist that are used. The library is loaded when a property list is first
/// parsed, so that runs that parse none do not pay for it.
struct PlistLibrary {
  decltype(&plist_from_memory) FromMemory = nullptr;
  decltype(&plist_free) Free = nullptr;
  decltype(&plist_get_node_type) NodeType = nullptr;
  decltype(&plist_get_bool_val) BooleanValue = nullptr;
  decltype(&plist_get_uint_val) IntegerValue = nullptr;
  decltype(&plist_get_real_val) RealValue = nullptr;
  decltype(&plist_get_string_ptr) StringValue = nullptr;
  decltype(&plist_get_data_ptr) DataValue = nullptr;
  decltype(&plist_array_new_iter) NewArrayIterator = nullptr;
  decltype(&plist_array_next_item) NextArrayItem = nullptr;
  decltype(&plist_dict_new_iter) NewDictionaryIterator = nullptr;
  decltype(&plist_dict_next_item) NextDictionaryItem = nullptr;

  /// Null when the library, or a function of it, is missing. Never unloaded.
  static const PlistLibrary* Get() {
    static const PlistLibrary library;
    return library.isComplete_ ? &library : nullptr;
  }

 private:
  PlistLibrary() {
    void* const handle = dlopen("libplist-2.0.so.3", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return;
    isComplete_ = Resolve(handle, "plist_from_memory", FromMemory) &&
                  Resolve(handle, "plist_free", Free) &&
                  Resolve(handle, "plist_get_node_type", NodeType) &&
                  Resolve(handle, "plist_get_bool_val", BooleanValue) &&
                  Resolve(handle, "plist_get_uint_val", IntegerValue) &&
                  Resolve(handle, "plist_get_real_val", RealValue) &&
                  Resolve(handle, "plist_get_string_ptr", StringValue) &&
                  Resolve(handle, "plist_get_data_ptr", DataValue) &&
                  Resolve(handle, "plist_array_new_iter", NewArrayIterator) &&
                  Resolve(handle, "plist_array_next_item", NextArrayItem) &&
                  Resolve(handle, "plist_dict_new_iter", NewDictionaryIterator) &&
                  Resolve(handle, "plist_dict_next_item", NextDictionaryItem);
  }

  template <typename Function>
  static bool Resolve(void* handle, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(handle, name));
    return function != nullptr;
  }

  bool isComplete_ = false;
};

using Kind = PropertyListValue::Kind;

/// Copies libplist's tree. The recursion is as deep as the guard lets a list be nested.
class Converter {
 public:
  explicit Converter(const PlistLibrary& library) : library_(library) {}

  PropertyListValue Convert(plist_t node) const {
    PropertyListValue value;
    switch (library_.NodeType(node)) {
      case PLIST_BOOLEAN: {
        std::uint8_t boolean = 0;
        library_.BooleanValue(node, &boolean);
        value.kind = Kind::kBoolean;
        value.boolean = boolean != 0;
        break;
      }
      case PLIST_UINT: {
        std::uint64_t integer = 0;
        library_.IntegerValue(node, &integer);
        value.kind = Kind::kInteger;
        value.integer = static_cast<std::int64_t>(integer);
        break;
      }
      case PLIST_REAL:
        library_.RealValue(node, &value.real);
        value.kind = Kind::kReal;
        break;
      case PLIST_STRING:
        value.kind = Kind::kString;
        value.text = Bytes(library_.StringValue, node);
        break;
      case PLIST_DATA:
        value.kind = Kind::kData;
        value.text = Bytes(library_.DataValue, node);
        break;
      case PLIST_DATE:
        value.kind = Kind::kDate;
        break;
      case PLIST_ARRAY:
        value.kind = Kind::kArray;
        ConvertElements(node, value);
        break;
      case PLIST_DICT:
        value.kind = Kind::kDictionary;
        ConvertMembers(node, value);
        break;
      default:
        break;
    }
    return value;
  }

 private:
  using Getter = const char* (*)(plist_t, std::uint64_t*);
  using IteratorOwner = std::unique_ptr<void, decltype(&std::free)>;

  static std::string Bytes(Getter getter, plist_t node) {
    std::uint64_t length = 0;
    const char* const bytes = getter(node, &length);
    return bytes != nullptr ? std::string(bytes, length) : std::string();
  }

  void ConvertElements(plist_t node, PropertyListValue& value) const {
    plist_array_iter iterator = nullptr;
    library_.NewArrayIterator(node, &iterator);
    const IteratorOwner owner(iterator, &std::free);
    for (;;) {
      plist_t item = nullptr;
      library_.NextArrayItem(node, iterator, &item);
      if (item == nullptr) return;
      value.elements.push_back(Convert(item));
    }
  }

  void ConvertMembers(plist_t node, PropertyListValue& value) const {
    plist_dict_iter iterator = nullptr;
    library_.NewDictionaryIterator(node, &iterator);
    const IteratorOwner owner(iterator, &std::free);
    for (;;) {
      char* key = nullptr;
      plist_t item = nullptr;
      library_.NextDictionaryItem(node, iterator, &key, &item);
      const std::unique_ptr<char, decltype(&std::free)> keyOwner(key, &std::free);
      if (key == nullptr || item == nullptr) return;
      value.members.emplace_back(key, Convert(item));
    }
  }

  const PlistLibrary& library_;
};

/// @return nothing when the file cannot be read or is longer than any list that is read.
std::optional<std::string> ReadFile(const std::string& path) {
  InputFile file;
  if (file.Open(path) != 0) return std::nullopt;
  std::string contents;
  char chunk[std::size_t{16} << 10];
  for (;;) {
    std::size_t count = 0;
    if (file.Read(chunk, sizeof chunk, count) != 0) return std::nullopt;
    if (count == 0) return contents;
    contents.append(chunk, count);
    if (contents.size() > kMaximumPropertyListSize) return std::nullopt;
  }
}

}  // namespace

std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes) {
  if (bytes.size() > kMaximumPropertyListSize || !IsWithinPropertyListLimits(bytes)) {
    return std::nullopt;
  }
  const PlistLibrary* const library = PlistLibrary::Get();
  if (library == nullptr) return std::nullopt;
  plist_t node = nullptr;
  library->FromMemory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  if (node == nullptr) return std::nullopt;
  const std::unique_ptr<void, decltype(library->Free)> owner(node, library->Free);
  return Converter(*library).Convert(node);
}

std::optional<PropertyListValue> ReadPropertyListDictionary(const std::string& path) {
  const std::optional<std::string> contents = ReadFile(path);
  if (!contents) return std::nullopt;
  std::optional<PropertyListValue> list = ParsePropertyList(*contents);
  if (!list || list->kind != Kind::kDictionary) return std::nullopt;
  return list;
}

}  // namespace platform
