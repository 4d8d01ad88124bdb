// The controller's file compression; the report itself sends an archive made by the zip program.

#include "PreferencePane/Help/HelpController.h"

#include "Foundation/PathComponents.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"

#include <fcntl.h>
#include <limits>
#include <unistd.h>
#include <zlib.h>

namespace kelvane {
namespace {

constexpr const char* outputName = "KelvaneLog.gz";
constexpr std::size_t mostBytes = std::numeric_limits<int>::max(); // per call of the library

// Other users may have write access to the folder, so the path is removed first, and nothing there is
// followed or shared.
gzFile openNew(const std::string& path) {
    ::unlink(path.c_str());
    const int file =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, privateFileMode);
    gzFile_s* const output = file >= 0 ? ::gzdopen(file, "w") : nullptr;
    if (output == nullptr && file >= 0)
        ::close(file);
    return output;
}

bool writeCompressed(const std::string& path, const Data& bytes) {
    gzFile_s* const output = openNew(path);
    if (output == nullptr)
        return false;
    const int written = ::gzwrite(output, bytes.data(), static_cast<unsigned>(bytes.size()));
    return ::gzclose(output) == Z_OK && written > 0;
}

} // namespace

std::optional<Data> KelvaneHelpController::compressFile(const std::string& path) {
    const FileReading contents = readFile(path, mostBytes, SymbolicLinks::Follow);
    if (!contents.succeeded())
        return std::nullopt;
    const std::string outputPath = appendPathComponent(temporaryFolder(), outputName);
    std::optional<Data> compressed;
    if (writeCompressed(outputPath, contents.bytes))
        if (FileReading output = readFile(outputPath, mostBytes); output.succeeded())
            compressed = std::move(output.bytes);
    ::unlink(outputPath.c_str());
    return compressed;
}

} // namespace kelvane
