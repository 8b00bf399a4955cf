#ifndef INSTALL_SERVICE_PROCESSES_H_
#define INSTALL_SERVICE_PROCESSES_H_

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace install {

/// Sets of service process names, any one of which is a running product; keyed by group number.
using ServiceTable = std::unordered_map<int, std::unordered_set<std::string>>;

/// The product's two layouts of services.
ServiceTable MakeServiceTable();

/// Whether as many of the running processes bear a name of one group as the group has names. It is
/// the processes that are counted, not the distinct names: two of the same name count twice, and
/// one too many is as wrong as one too few.
bool IsGroupRunning(const ServiceTable& services, const std::vector<std::string>& processNames);

}  // namespace install

#endif  // INSTALL_SERVICE_PROCESSES_H_
