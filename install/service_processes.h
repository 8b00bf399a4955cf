#ifndef INSTALL_SERVICE_PROCESSES_H_
#define INSTALL_SERVICE_PROCESSES_H_

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace install {

/// Sets of service process names, keyed by group number. The product is running if one complete set
/// is running.
using ServiceTable = std::unordered_map<int, std::unordered_set<std::string>>;

/// The product's two layouts of services.
ServiceTable MakeServiceTable();

/// Whether, for one of the groups, the number of running processes with a name from the group
/// equals the number of names in the group. Processes are counted, not distinct names: two with the
/// same name count twice, and one too many is as wrong as one too few.
bool IsGroupRunning(const ServiceTable& services, const std::vector<std::string>& processNames);

}  // namespace install

#endif  // INSTALL_SERVICE_PROCESSES_H_
