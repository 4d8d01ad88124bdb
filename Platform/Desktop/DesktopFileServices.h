#pragma once

#include "Platform/Desktop/Icons.h"
#include "Platform/Files/FileServices.h"

namespace kelvane {

// The file services of a desktop: kinds are the MIME database's descriptions, dates follow the user's locale,
// icons come from the bundle and the theme. The kind depends on the file's name only: the file is not read,
// so that listing thousands stays fast.
class DesktopFileServices : public FileServices {
public:
    // `icons` must also outlive this object.
    DesktopFileServices(const FileSystem& fileSystem, const Accounts& accounts, const Icons& icons)
        : FileServices(fileSystem, accounts), icons_(icons) {}

    [[nodiscard]] std::string dateAndTime(Date date) const override;

    [[nodiscard]] std::string kindOfFolder() const override;
    // The MIME database says "mount point", which is not a term for users.
    [[nodiscard]] std::string kindOfDisk() const override { return "Disk"; }
    [[nodiscard]] std::string kindOfExtension(std::string_view extension) const override;

    [[nodiscard]] IconHandle iconOfFile(const std::string& path) const override;
    [[nodiscard]] IconHandle iconOfFolder() const override { return icons_.folder(); }
    [[nodiscard]] IconHandle iconOfDisk() const override { return icons_.disk(); }
    [[nodiscard]] IconHandle iconOfExtension(std::string_view extension) const override;

private:
    const Icons& icons_;
};

} // namespace kelvane
