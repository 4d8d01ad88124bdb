#pragma once

#include "Foundation/Value.h"
#include "Platform/Accounts.h"
#include "Platform/Files/FileSystem.h"

#include <clocale>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane {

// A picture whose contents only the desktop code can access.
class Icon {
public:
    Icon() = default;
    virtual ~Icon() = default;
    Icon(const Icon&) = delete;
    Icon& operator=(const Icon&) = delete;
};

using IconHandle = std::shared_ptr<const Icon>;

// Information about files beyond what the file system stores: names of owners, names and icons of kinds, and
// dates in the user's format. Main thread only; file system and accounts must outlive it. Nothing fails:
// what is unknown is an empty text or no icon.
class FileServices {
public:
    FileServices(const FileSystem& fileSystem, const Accounts& accounts)
        : fileSystem_(fileSystem), accounts_(accounts) {}
    virtual ~FileServices() = default;
    FileServices(const FileServices&) = delete;
    FileServices& operator=(const FileServices&) = delete;

    [[nodiscard]] const FileSystem& fileSystem() const { return fileSystem_; }
    [[nodiscard]] const Accounts& accounts() const { return accounts_; }
    // An alias is a symbolic link here.
    [[nodiscard]] bool isAlias(const std::string& path) const;

    // Returns the date and time in the user's format and time zone.
    [[nodiscard]] virtual std::string dateAndTime(Date date) const = 0;

    [[nodiscard]] virtual std::string kindOfFolder() const = 0;
    [[nodiscard]] virtual std::string kindOfDisk() const = 0;
    [[nodiscard]] virtual std::string kindOfExtension(std::string_view extension) const = 0;

    [[nodiscard]] virtual IconHandle iconOfFile(const std::string& path) const = 0;
    [[nodiscard]] virtual IconHandle iconOfFolder() const = 0;
    [[nodiscard]] virtual IconHandle iconOfDisk() const = 0;
    [[nodiscard]] virtual IconHandle iconOfExtension(std::string_view extension) const = 0;

private:
    const FileSystem& fileSystem_;
    const Accounts& accounts_;
};

// For programs without a desktop: dates by the C library's locale, English names for folders and disks, no
// other kinds and no icons.
class PlainFileServices : public FileServices {
public:
    // `localeName` as for setlocale; "" is the environment's. An unknown name gives the C locale.
    PlainFileServices(const FileSystem& fileSystem, const Accounts& accounts, const char* localeName = "");

    [[nodiscard]] std::string dateAndTime(Date date) const override;

    [[nodiscard]] std::string kindOfFolder() const override { return "Folder"; }
    [[nodiscard]] std::string kindOfDisk() const override { return "Disk"; }
    [[nodiscard]] std::string kindOfExtension(std::string_view) const override { return {}; }

    [[nodiscard]] IconHandle iconOfFile(const std::string&) const override { return nullptr; }
    [[nodiscard]] IconHandle iconOfFolder() const override { return nullptr; }
    [[nodiscard]] IconHandle iconOfDisk() const override { return nullptr; }
    [[nodiscard]] IconHandle iconOfExtension(std::string_view) const override { return nullptr; }

private:
    struct FreeLocale {
        void operator()(locale_t locale) const { ::freelocale(locale); }
    };
    std::unique_ptr<std::remove_pointer_t<locale_t>, FreeLocale> locale_;
};

} // namespace kelvane
