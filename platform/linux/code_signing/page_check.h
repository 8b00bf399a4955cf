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

/// Hashes the code that starts at `start` of a file and compares every page with the hashes of all
/// directories of a known type, on all processors. Page size and code limit are those of the best
/// directory. The memory it takes does not depend on the file. What it is given must outlive
/// it.
class PageCheck {
 public:
  PageCheck(const RandomAccessFile& file, std::uint64_t start, const CodeDirectorySet& directories,
            WorkBudget& budget);
  PageCheck(const PageCheck&) = delete;
  PageCheck& operator=(const PageCheck&) = delete;
  /// Ends the work, wherever it is.
  ~PageCheck();

  /// Sets the other processors to work, and returns. @throws BudgetExceeded
  void Begin();

  /// Has all processors do what is left. To be called once.
  /// @return kErrSecCSSignatureFailed for a page that differs or is not fully there.
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
  // The work is cut into runs of pages, each for one directory; the threads take them one by one.
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
