#pragma once

#include <string>

namespace kelvane {

// Disks that take turns at one place hold a repository each. What the daemon keeps in the file `path` is
// about the one that is there; the files about the others wait beside it, under their ids.
//
// Brings back the file about the repository `present`, if there is one, after what is there has been set
// aside as that about `previous`; that is lost when its id is empty. A failure is logged.
void exchangeFile(const std::string& path, const std::string& previous, const std::string& present);

} // namespace kelvane
