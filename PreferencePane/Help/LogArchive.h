#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/Processes/ChildProcess.h"

#include <optional>
#include <string>

namespace kelvane {

// The zipped log of one report: "KelvaneLog.zip" in the user's temporary folder, for as long as this lives.
//
// Others may be allowed to write to that folder. So whatever stands there before is removed, and only a file
// that belongs to this user, is no link and has no second name is taken for the archive.
class LogArchive {
public:
    static constexpr const char* name = "KelvaneLog.zip";

    explicit LogArchive(std::string zipProgram);
    ~LogArchive();
    LogArchive(const LogArchive&) = delete;
    LogArchive& operator=(const LogArchive&) = delete;

    // Starts zipping. None, with the reason, when there is nothing to zip or no place for it.
    [[nodiscard]] std::optional<ChildProcess> zip(const std::string& logPath, std::string& reason) const;
    // The archive, if it was made.
    [[nodiscard]] FileDescriptor open() const;

private:
    const std::string zipProgram_;
    const std::string path_;
};

} // namespace kelvane
