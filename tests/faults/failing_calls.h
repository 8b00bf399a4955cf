#ifndef TESTS_FAULTS_FAILING_CALLS_H_
#define TESTS_FAULTS_FAILING_CALLS_H_

#include <cstddef>
#include <string>
#include <vector>

/// The calls to the system that the Linux adapters make. In this program they go through wrappers.
namespace failing_calls {

enum class Fault {
  kError,        ///< the call fails with EIO, or with a null pointer
  kInterrupted,  ///< it fails with EINTR
  kCut,          ///< it reads or writes one byte
};

/// Names of all the calls that can fail.
std::vector<std::string> Names();

/// How often a call has been made so far, by all threads.
std::size_t Count(const std::string& name);

/// Injects `fault` into the `number`th call (from 1) that the calling thread makes to `name` from
/// now on.
void Arm(const std::string& name, std::size_t number, Fault fault);

/// Lets all calls succeed again. @return whether the armed one was made.
bool Disarm();

}  // namespace failing_calls

#endif  // TESTS_FAULTS_FAILING_CALLS_H_
