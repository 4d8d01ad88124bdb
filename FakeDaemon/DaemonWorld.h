#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// What a fake daemon knows, and how the calls of its panes change it. Plain values, without threads and
// without a link.
struct DaemonWorld {
    Value state = Dictionary(); // what `daemonState` answers
    // By selector: what a method without arguments answers, unless the state says it.
    Value values = Dictionary();
    Value profile = Dictionary();     // texts
    Value fileTypes = Dictionary();   // toggles
    Value restoreJobs = Dictionary(); // by number in decimal: status codes
    // By state code in decimal: what the three methods "...ForState:" answer.
    Value progress = Dictionary();
    // Node dictionaries with their "path", in the order in which a folder lists them. The boot volume's path
    // is "/".
    std::vector<Value> files;
    std::vector<std::string> volumes;
    std::string bootVolume = "System"; // files may also be asked for below "/Volumes/<this>"

    // Adds a node with the folder's or file's name, its colour and flags those of one that is backed up, or
    // not.
    void addFile(const std::string& path, bool isDirectory, std::uint64_t size, bool isBackedUp);

    // Applies one call of KelvaneDaemonProtocol and gives its answer: absent for a void method, and where the
    // world has nothing to say.
    [[nodiscard]] Value handle(std::string_view selector, const Array& arguments);

    [[nodiscard]] Value* file(const std::string& path);
    [[nodiscard]] Value children(const std::string& path) const;
    [[nodiscard]] Value withFolderSizes(Value node) const;
    void include(const std::string& path, bool isIncluded);
    void exclude(const std::string& path, bool isExcluded);
    [[nodiscard]] Value excludedFiles() const;
    [[nodiscard]] std::string ownPath(const std::string& path) const;
};

// The account and files of somebody who has used the service for a while.
[[nodiscard]] DaemonWorld demoWorld();

// The demo account's daemon with the extensions whose answers are in its state: "alerts", "schedule" and
// "verify".
void addDemoExtensions(DaemonWorld& world);

} // namespace kelvane
