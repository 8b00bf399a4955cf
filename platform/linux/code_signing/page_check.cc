#include "platform/linux/code_signing/page_check.h"

#include <algorithm>
#include <new>
#include <system_error>

namespace platform::code_signing {
namespace {

// Small enough to stay in a processor's cache between reading and hashing, and to avoid touching
// much new memory for small files.
constexpr std::uint64_t kBufferSize = 64U << 10U;

constexpr unsigned kMaxThreads = 8;

}  // namespace

// Reads a range of a file in pieces.
class PageCheck::RangeReader {
 public:
  RangeReader(const RandomAccessFile& file, std::vector<char>& buffer, std::uint64_t begin,
              std::uint64_t end)
      : file_(file), buffer_(buffer), position_(begin), end_(end) {}

  // Returns the next bytes, at most `length` of them; none at the end of the file.
  OsStatus Next(std::uint64_t length, std::string_view& piece) {
    if (rest_.empty()) {
      const auto wanted =
          static_cast<std::size_t>(std::min<std::uint64_t>(end_ - position_, buffer_.size()));
      std::size_t count = 0;
      if (const int error = file_.ReadAt(position_, buffer_.data(), wanted, count); error != 0) {
        return StatusFromErrno(error);
      }
      position_ += count;
      rest_ = std::string_view(buffer_.data(), count);
    }
    piece =
        rest_.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(length, rest_.size())));
    rest_.remove_prefix(piece.size());
    return kErrSecSuccess;
  }

 private:
  const RandomAccessFile& file_;
  std::vector<char>& buffer_;
  std::uint64_t position_;
  std::uint64_t end_;
  std::string_view rest_;
};

PageCheck::PageCheck(const RandomAccessFile& file, std::uint64_t start,
                     const CodeDirectorySet& directories, WorkBudget& budget)
    : file_(file),
      budget_(budget),
      start_(start),
      limit_(directories.Best().CodeLimit()),
      pageCount_(directories.Best().CodeSlotCount()),
      pageSize_(directories.Best().PageSize() != 0 ? directories.Best().PageSize() : limit_),
      pagesPerRun_(std::max<std::uint64_t>(1, pageSize_ == 0 ? 1 : kBufferSize / pageSize_)),
      runCount_((pageCount_ + pagesPerRun_ - 1) / pagesPerRun_) {
  for (const auto& [number, directory] : directories.All()) {
    if (directory.KnownHashType()) directories_.push_back(&directory);
  }
}

PageCheck::~PageCheck() {
  Fail(kErrSecCSInternalError);  // stops the helpers; the status is not read
  JoinHelpers();
}

void PageCheck::Begin() {
  if (hasBegun_) return;
  hasBegun_ = true;
  status_ = CheckExtent();
  if (status_ != kErrSecSuccess) return;
  for (std::size_t i = 0; i < directories_.size(); ++i) budget_.ChargeForHashing(limit_);
  // Starting a thread takes longer than hashing one buffer.
  if (limit_ <= kBufferSize) return;
  const std::uint64_t processors = std::clamp(std::thread::hardware_concurrency(), 1U, kMaxThreads);
  helpers_.reserve(kMaxThreads);
  try {
    while (helpers_.size() + 1 < std::min(processors, ItemCount())) {
      helpers_.emplace_back([this] { WorkOrFail(); });
    }
  } catch (const std::system_error&) {
    // Fewer threads also suffice.
  }
}

OsStatus PageCheck::Finish() {
  Begin();
  WorkOrFail();
  JoinHelpers();
  return status_;
}

OsStatus PageCheck::CheckExtent() const {
  std::uint64_t size = 0;
  if (const int error = file_.Size(size); error != 0) return StatusFromErrno(error);
  return start_ <= size && limit_ <= size - start_ ? kErrSecSuccess : kErrSecCSSignatureFailed;
}

void PageCheck::JoinHelpers() {
  for (std::thread& helper : helpers_) helper.join();
  helpers_.clear();
}

void PageCheck::WorkOrFail() {
  try {
    Work();
  } catch (const std::bad_alloc&) {
    Fail(kErrSecAllocate);
  }
}

void PageCheck::Work() {
  std::vector<char> buffer(
      static_cast<std::size_t>(std::min(kBufferSize, std::max<std::uint64_t>(limit_, 1))));
  std::vector<Digest> digests;
  for (const CodeDirectory* directory : directories_) {
    digests.emplace_back(*directory->KnownHashType());
  }
  while (status_ == kErrSecSuccess) {
    const std::uint64_t item = nextItem_.fetch_add(1);
    if (item >= ItemCount()) return;
    const auto which = static_cast<std::size_t>(item % directories_.size());
    const OsStatus status =
        CheckRun(*directories_[which], digests[which], item / directories_.size(), buffer);
    if (status != kErrSecSuccess) Fail(status);
  }
}

std::uint64_t PageCheck::PageBegin(std::uint64_t page) const {
  return std::min(limit_, page * pageSize_);
}

OsStatus PageCheck::CheckRun(const CodeDirectory& directory, Digest& digest, std::uint64_t run,
                             std::vector<char>& buffer) const {
  const std::uint64_t firstPage = run * pagesPerRun_;
  const std::uint64_t endPage = std::min(firstPage + pagesPerRun_, pageCount_);
  RangeReader reader(file_, buffer, start_ + PageBegin(firstPage), start_ + PageBegin(endPage));
  OsStatus status = kErrSecSuccess;
  for (std::uint64_t page = firstPage; page < endPage && status == kErrSecSuccess; ++page) {
    status = CheckPage(directory, digest, static_cast<std::uint32_t>(page), reader);
  }
  return status;
}

OsStatus PageCheck::CheckPage(const CodeDirectory& directory, Digest& digest, std::uint32_t page,
                              RangeReader& reader) const {
  const auto stored = directory.CodeHash(page);
  if (!stored) return kErrSecCSSignatureFailed;
  std::uint64_t remaining = PageBegin(std::uint64_t{page} + 1) - PageBegin(page);
  while (remaining > 0) {
    if (status_ != kErrSecSuccess) return kErrSecSuccess;  // another thread has failed
    std::string_view piece;
    if (const OsStatus status = reader.Next(remaining, piece); status != kErrSecSuccess) {
      return status;
    }
    if (piece.empty()) return kErrSecCSSignatureFailed;
    digest.Update(piece);
    remaining -= piece.size();
  }
  return digest.Finish() == *stored ? kErrSecSuccess : kErrSecCSSignatureFailed;
}

void PageCheck::Fail(OsStatus status) {
  OsStatus expected = kErrSecSuccess;
  status_.compare_exchange_strong(expected, status);
}

}  // namespace platform::code_signing
