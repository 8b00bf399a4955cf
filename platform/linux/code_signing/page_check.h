#ifndef PLATFORM_LINUX_CODE_SIGNING_PAGE_CHECK_H_
#define PLATFORM_LINUX_CODE_SIGNING_PAGE_CHECK_H_

#include <atomic>
#include <cstdint>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/linux/code_signing/check_context.h"
#include "platform/linux/code_signing/code_directory_set.h"
#include "platform/linux/code_signing/digest.h"
#include "platform/linux/random_access_file.h"

namespace platform::code_signing {

/// Hashes the code that starts at offset `start` in a file and compares every page with the hashes
/// of all directories of a known type, on all processors. Page size and code limit are those of the
/// best directory. The memory use does not depend on the size of the file.
class PageCheck {
 public:
  /// The arguments must outlive the object.
  PageCheck(const RandomAccessFile& file, std::uint64_t start, const CodeDirectorySet& directories,
            WorkBudget& budget);
  PageCheck(const PageCheck&) = delete;
  PageCheck& operator=(const PageCheck&) = delete;
  /// Abandons unfinished work.
  ~PageCheck();

  /// Starts the work on the other processors and returns. @throws BudgetExceeded
  void Begin();

  /// Does the remaining work on all processors. Call it once.
  /// @return kErrSecCSSignatureFailed for a page that differs or is incomplete.
  OsStatus Finish();

 private:
  class RangeReader;

  OsStatus CheckExtent() const;
  void Work();
  void WorkOrFail();
  OsStatus CheckRun(const CodeDirectory& directory, Digest& digest, std::uint64_t run,
                    std::vector<char>& buffer) const;
  OsStatus CheckPage(const CodeDirectory& directory, Digest& digest, std::uint32_t page,
                     RangeReader& reader) const;
  void Fail(OsStatus status);
  void JoinHelpers();

  std::uint64_t PageBegin(std::uint64_t page) const;
  // Each work item is a run of pages for one directory. The threads take them one by one.
  std::uint64_t ItemCount() const { return runCount_ * directories_.size(); }

  const RandomAccessFile& file_;
  WorkBudget& budget_;
  const std::uint64_t start_;
  const std::uint64_t limit_;
  const std::uint64_t pageCount_;
  const std::uint64_t pageSize_;
  const std::uint64_t pagesPerRun_;
  const std::uint64_t runCount_;
  std::vector<const CodeDirectory*> directories_;
  bool hasBegun_ = false;
  std::vector<std::thread> helpers_;
  std::atomic<std::uint64_t> nextItem_{0};
  std::atomic<OsStatus> status_{kErrSecSuccess};
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_PAGE_CHECK_H_
