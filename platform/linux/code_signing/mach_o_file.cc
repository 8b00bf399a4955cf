#include "platform/linux/code_signing/mach_o_file.h"

#include <algorithm>
#include <set>
#include <utility>

#include "platform/linux/code_signing/byte_reader.h"

namespace platform::code_signing {
namespace {

constexpr std::int32_t kCpuArm64 = 0x0100000C;

// The top byte of a CPU subtype holds capabilities.
constexpr std::uint32_t kSubtypeMask = 0x00FFFFFF;

// Programs, preloaded programs, libraries, the loader, bundles and kernel extensions.
constexpr std::uint32_t kCodeFileTypes[] = {2, 5, 6, 7, 8, 0xB};

constexpr std::uint64_t kUniversalHeaderSize = 8;
constexpr std::uint64_t kSliceCount = 4;
constexpr std::uint64_t kEntrySize = 20;
constexpr std::uint64_t kMaxSlices = 100;

}  // namespace

bool MachOFile::IsCandidate(const RandomAccessFile& file) {
  const std::uint32_t type = MachOFileType(file);
  return std::find(std::begin(kCodeFileTypes), std::end(kCodeFileTypes), type) !=
         std::end(kCodeFileTypes);
}

MachOFile::MachOFile(std::string path, RandomAccessFile file)
    : path_(std::move(path)), file_(std::move(file)) {}

OsStatus MachOFile::Open(std::string path, RandomAccessFile file,
                         DiskRepresentationPtr& representation) {
  std::unique_ptr<MachOFile> opened(new MachOFile(std::move(path), std::move(file)));
  const OsStatus status = opened->ReadTable();
  if (status == kErrSecSuccess) representation = std::move(opened);
  return status;
}

OsStatus MachOFile::ReadTable() {
  const std::optional<std::string> header = file_.ReadPiece(0, kMachOHeaderSize);
  if (!header) return kErrSecCSBadObjectFormat;
  isUniversal_ = IsUniversalHeader(*header);
  if (isUniversal_) return ReadEntries(ByteReader(*header, ByteOrder::kBig).U32(kSliceCount));
  if (!ParseMachOHeader(*header)) return kErrSecCSBadObjectFormat;
  SliceEntry whole;
  if (const int error = file_.Size(whole.size); error != 0) return StatusFromErrno(error);
  slices_.push_back(whole);
  return kErrSecSuccess;
}

OsStatus MachOFile::ReadEntries(std::uint64_t count) {
  if (count > kMaxSlices) return kErrSecCSBadObjectFormat;
  // Reads one entry beyond the counted ones: an arm64 slice may be hidden there from old systems.
  const std::optional<std::string> table =
      file_.ReadPiece(kUniversalHeaderSize, (count + 1) * kEntrySize);
  if (!table) return kErrSecCSBadObjectFormat;
  const ByteReader reader(*table, ByteOrder::kBig);
  std::set<std::uint64_t> offsets;
  for (std::uint64_t i = 0; i <= count; ++i) {
    const std::uint64_t position = i * kEntrySize;
    SliceEntry entry;
    entry.cpuType = static_cast<std::int32_t>(reader.U32(position));
    entry.cpuSubtype = static_cast<std::int32_t>(reader.U32(position + 4));
    entry.offset = reader.U32(position + 8);
    entry.size = reader.U32(position + 12);
    if (i == count && entry.cpuType != kCpuArm64) break;
    if (!offsets.insert(entry.offset).second) return kErrSecInternalError;
    slices_.push_back(entry);
  }
  if (slices_.empty()) return kErrSecCSBadObjectFormat;
  std::sort(slices_.begin(), slices_.end(),
            [](const SliceEntry& a, const SliceEntry& b) { return a.offset < b.offset; });
  overlap_ = std::adjacent_find(slices_.begin(), slices_.end(),
                                [](const SliceEntry& a, const SliceEntry& b) {
                                  return a.offset + a.size > b.offset;
                                }) != slices_.end();
  OrderSlices();
  return kErrSecSuccess;
}

// Puts the native slice first and orders the others by architecture.
void MachOFile::OrderSlices() {
  const auto rank = [](const SliceEntry& entry) {
    if (entry.cpuType != kCpuArm64) return 0;
    return (static_cast<std::uint32_t>(entry.cpuSubtype) & kSubtypeMask) == 0 ? 2 : 1;
  };
  const auto native =
      std::max_element(slices_.begin(), slices_.end(),
                       [&](const SliceEntry& a, const SliceEntry& b) { return rank(a) < rank(b); });
  std::rotate(slices_.begin(), native, native + 1);
  std::stable_sort(slices_.begin() + 1, slices_.end(),
                   [](const SliceEntry& a, const SliceEntry& b) {
                     return std::pair(a.cpuType, a.cpuSubtype) < std::pair(b.cpuType, b.cpuSubtype);
                   });
}

OsStatus MachOFile::FindCode(std::size_t slice, CodeRange& range) const {
  const LoadedSlice& loaded = Load(slice);
  if (loaded.status != kErrSecSuccess) return loaded.status;
  // The kernel of macOS refuses slices that overlap. With them, the same bytes could be hashed
  // again and again.
  if (overlap_ || loaded.end > slices_[slice].size) return kErrSecCSSignatureFailed;
  range.start = slices_[slice].offset;
  if (loaded.signatureOffset) {
    range.length = *loaded.signatureOffset;
    return kErrSecSuccess;
  }
  range.length = slices_[slice].size;
  return kErrSecSuccess;
}

OsStatus MachOFile::ReadComponent(std::size_t slice, Slot slot,
                                  std::optional<std::string>& bytes) const {
  bytes.reset();
  const LoadedSlice& loaded = Load(slice);
  if (slot == kSlotInfoPlist) {
    if (loaded.infoPlist) {
      bytes = file_.ReadPiece(slices_[slice].offset + loaded.infoPlist->offset,
                              loaded.infoPlist->length);
    }
    return kErrSecSuccess;
  }
  if (loaded.status != kErrSecSuccess) return loaded.status;
  return loaded.signature ? loaded.signature->ReadComponent(slot, bytes) : kErrSecSuccess;
}

const MachOFile::LoadedSlice& MachOFile::Load(std::size_t slice) const {
  if (!loaded_ || loaded_->index != slice) {
    loaded_.reset();
    LoadedSlice loaded;
    loaded.index = slice;
    loaded.status = Fill(loaded);
    loaded_ = std::move(loaded);
  }
  return *loaded_;
}

OsStatus MachOFile::Fill(LoadedSlice& loaded) const {
  const SliceEntry& entry = slices_[loaded.index];
  MachOSlice slice;
  OsStatus status = MachOSlice::Read(file_, entry.offset, slice);
  if (status != kErrSecSuccess) return status;
  if (isUniversal_ && loaded.index == 0 && slice.FileType() == 0) return kErrSecCSBadObjectFormat;
  loaded.infoPlist = slice.FindInfoPlist();
  loaded.end = slice.CommandsEnd();
  std::optional<MachOSlice::Range> signature;
  status = slice.FindSignature(signature);
  if (status != kErrSecSuccess || !signature) return status;
  loaded.signatureOffset = signature->offset;
  status = SuperBlob::Read(file_, entry.offset + signature->offset, signature->length,
                           loaded.signature.emplace());
  loaded.end = std::max(loaded.end, signature->offset + loaded.signature->Size());
  return status;
}

}  // namespace platform::code_signing
