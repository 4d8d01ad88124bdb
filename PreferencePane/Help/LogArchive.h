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

    // Starts to zip. None, with the reason, when there is nothing to zip or the archive cannot be created.
    [[nodiscard]] std::optional<ChildProcess> zip(const std::string& logPath, std::string& reason) const;
    // Opens the archive, if it was made.
    [[nodiscard]] FileDescriptor open() const;

private:
    const std::string zipProgram_;
    const std::string path_;
};

} // namespace kelvane
