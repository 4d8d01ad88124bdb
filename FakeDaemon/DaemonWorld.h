#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The data of a fake daemon, and how calls of its panes change it. Plain values, without threads or
// connections.
struct DaemonWorld {
    Value state = Dictionary(); // The result of `daemonState`.
    // Results of methods without arguments, by selector, unless the state has them.
    Value values = Dictionary();
    Value profile = Dictionary();     // Values are texts.
    Value fileTypes = Dictionary();   // Values are flags.
    Value restoreJobs = Dictionary(); // Status codes by job number in decimal.
    // The results of the three methods "...ForState:", by state code in decimal.
    Value progress = Dictionary();
    // Node dictionaries with their "path", in the order of the folder's listing. The boot volume's path
    // is "/".
    std::vector<Value> files;
    std::vector<std::string> volumes;
    std::string bootVolume = "System"; // Paths may also begin with "/Volumes/" and this name.

    // Adds a node with the name, colour and flags of a file or folder that is backed up, or is not.
    void addFile(const std::string& path, bool isDirectory, std::uint64_t size, bool isBackedUp);

    // Applies a call of KelvaneDaemonProtocol and returns its result: absent for a void method, and for
    // one without a value.
    [[nodiscard]] Value handle(std::string_view selector, const Array& arguments);

    [[nodiscard]] Value* file(const std::string& path);
    [[nodiscard]] Value children(const std::string& path) const;
    [[nodiscard]] Value withFolderSizes(Value node) const;
    void include(const std::string& path, bool isIncluded);
    void exclude(const std::string& path, bool isExcluded);
    [[nodiscard]] Value excludedFiles() const;
    [[nodiscard]] std::string ownPath(const std::string& path) const;
};

// Returns the account and files of a user who has used the service for a while.
[[nodiscard]] DaemonWorld demoWorld();

// Adds the extensions "alerts", "schedule" and "verify" of the demo account's daemon to its state.
void addDemoExtensions(DaemonWorld& world);

} // namespace kelvane
