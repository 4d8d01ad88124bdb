#pragma once

#include "Platform/Desktop/Icons.h"
#include "Platform/Files/FileServices.h"

namespace kelvane {

// File services of a desktop: kinds are the MIME database's comments, dates those of the user's locale, icons
// those of the bundle and the theme. A kind is told by the file's name, never by reading it: a listing of
// thousands stays quick.
class DesktopFileServices : public FileServices {
public:
    // `icons` must outlive it, too.
    DesktopFileServices(const FileSystem& fileSystem, const Accounts& accounts, const Icons& icons)
        : FileServices(fileSystem, accounts), icons_(icons) {}

    [[nodiscard]] std::string dateAndTime(Date date) const override;

    [[nodiscard]] std::string kindOfFolder() const override;
    // The database knows a disk as "mount point", which is not what a person calls it.
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
