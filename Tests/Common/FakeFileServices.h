#pragma once

#include "Platform/Files/FileServices.h"

#include <map>

namespace kelvane::tests {

// A disk, accounts and a desktop as the test defines them; one file cannot be read.
struct FakeDisk : FileSystem {
    std::map<std::string, FileAttributes::Kind> files;

    std::shared_ptr<const Volumes> volumes() const override { return std::make_shared<Volumes>(); }
    bool exists(const std::string& path) const override { return files.contains(path); }
    bool isDirectory(const std::string& path) const override {
        return exists(path) && files.at(path) == FileAttributes::Kind::Directory;
    }
    std::optional<FileAttributes> attributes(const std::string& path) const override {
        FileAttributes attributes;
        if (!exists(path))
            return std::nullopt;
        attributes.kind = files.at(path);
        attributes.size = 5;
        attributes.uid = 1;
        attributes.gid = 2;
        return attributes;
    }
    bool isReadable(const std::string& path) const override { return path != "/secret" && exists(path); }
    FolderListing list(const std::string&, std::size_t) const override { return {}; }
    std::optional<std::string> mountPoint(const std::string&) const override { return std::nullopt; }
    std::shared_ptr<const MountPoints> mounts() const override {
        return std::make_shared<MountPoints>(MountPoints{{"/", "ext4"}});
    }
    std::string fileSystemId(const std::string&) const override { return {}; }
};

struct FakeAccounts : Accounts {
    std::optional<std::string> userName(std::uint32_t uid) const override {
        return uid == 1 ? std::optional("joe") : std::nullopt;
    }
    std::optional<std::string> groupName(std::uint32_t gid) const override {
        return gid == 2 ? std::optional("staff") : std::nullopt;
    }
};

struct NamedIcon : Icon {
    explicit NamedIcon(std::string_view name) : name(name) {}
    std::string name;
};

// Knows the type of "txt" and has no specific icon for "/plain".
struct FakeFileServices : FileServices {
    FakeFileServices() : FileServices(disk, accounts) {}

    std::string dateAndTime(Date) const override { return "a date"; }
    std::string kindOfFolder() const override { return "folder"; }
    std::string kindOfDisk() const override { return "disk"; }
    std::string kindOfExtension(std::string_view name) const override { return name == "txt" ? "text" : ""; }
    IconHandle iconOfFile(const std::string& path) const override {
        return path == "/plain" ? nullptr : icon("file " + path);
    }
    IconHandle iconOfFolder() const override { return icon("folder"); }
    IconHandle iconOfDisk() const override { return icon("disk"); }
    IconHandle iconOfExtension(std::string_view extension) const override { return icon(extension); }
    static IconHandle icon(std::string_view name) { return std::make_shared<NamedIcon>(name); }

    FakeDisk disk;
    FakeAccounts accounts;
};

} // namespace kelvane::tests
