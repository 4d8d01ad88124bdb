#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/Processes/ChildProcess.h"

#include <optional>
#include <string>

namespace kelvane {

// The zipped log of one report: "KelvaneLog.zip" in the user's temporary folder, removed by the destructor.
//
// Other users may have write access to that folder. So whatever is at the path is removed first, and the
// archive is accepted only if it belongs to this user, is not a link and has no second name.
class LogArchive {
public:
    static constexpr const char* name = "KelvaneLog.zip";

    explicit LogArchive(std::string zipProgram);
    ~LogArchive();
    LogArchive(const LogArchive&) = delete;
    LogArchive& operator=(const LogArchive&) = delete;

    // Starts to zip. None, with the reason, when `logPath` is not absolute, an old archive cannot be removed
    // or the zip program cannot be started.
    [[nodiscard]] std::optional<ChildProcess> zip(const std::string& logPath, std::string& reason) const;
    // Opens the archive; empty when there is none that can be accepted.
    [[nodiscard]] FileDescriptor open() const;

private:
    const std::string zipProgram_;
    const std::string path_;
};

} // namespace kelvane
