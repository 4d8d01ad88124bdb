#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kelvane {

// The file through which the pane passes its authorization to a tool in its bundle and learns the result: 40
// bytes, mapped by both sides.
//
// Offset  Size  Contents
//      0    32  the authorization's external form
//     32     4  zero
//     36     4  completion word in host byte order: 0 while the tool runs, 1 after success, else a failure
//
// The file is in a world-writable folder, so both sides refuse a link, a file of another owner, and a file
// with a second name.
class HandOffFile {
public:
    static constexpr const char* defaultPath = "/tmp/com.kelvane.auth";
    static constexpr std::size_t size = 40;
    static constexpr std::size_t formSize = 32;
    static constexpr std::uint32_t succeeded = 1;

    // For the pane: creates the file filled with zeros; the destructor removes it. On failure, removes what
    // is at the path, where that is permitted, and returns null with the reason in `errno`.
    [[nodiscard]] static std::unique_ptr<HandOffFile> create(const std::string& path = defaultPath);
    // For the tool: null with the reason in `errno` when this user has no such file.
    [[nodiscard]] static std::unique_ptr<HandOffFile> open(const std::string& path = defaultPath);
    ~HandOffFile();
    HandOffFile(const HandOffFile&) = delete;
    HandOffFile& operator=(const HandOffFile&) = delete;

    [[nodiscard]] std::span<std::uint8_t, formSize> form() { return bytes_.first<formSize>(); }

    [[nodiscard]] std::uint32_t completionWord() const;
    void complete(std::uint32_t word);

private:
    explicit HandOffFile(std::span<std::uint8_t, size> bytes, std::string path)
        : bytes_(bytes), pathToRemove_(std::move(path)) {}
    [[nodiscard]] std::uint32_t& word() const;
    [[nodiscard]] static std::unique_ptr<HandOffFile> map(int descriptor, const std::string& pathToRemove);

    const std::span<std::uint8_t, size> bytes_;
    const std::string pathToRemove_;
};

} // namespace kelvane
