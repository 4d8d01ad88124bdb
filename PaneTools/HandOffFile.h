#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kelvane {

// The file by which the pane hands its authorization to a tool of its bundle, and hears how that went. 40
// bytes that both sides have mapped:
//
//    0  32  the authorization's external form
//   32   4  zero
//   36   4  completion word in the machine's byte order: 0 while the tool runs, 1 when it succeeded, else it
//           failed
//
// It stands in a folder that everybody may write to: what is a link, belongs to somebody else, or has a
// second name is refused on both sides.
class HandOffFile {
public:
    static constexpr const char* usualPath = "/tmp/com.kelvane.auth";
    static constexpr std::size_t size = 40;
    static constexpr std::size_t formSize = 32;
    static constexpr std::uint32_t succeeded = 1;

    // The pane's side: all zero, and removed when this goes. Null, and `errno` says why, when it cannot be
    // had; what stood in its place is removed then, where that is permitted.
    [[nodiscard]] static std::unique_ptr<HandOffFile> create(const std::string& path = usualPath);
    // The tool's side: null, and `errno` says why, when there is none of this user's.
    [[nodiscard]] static std::unique_ptr<HandOffFile> open(const std::string& path = usualPath);
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
