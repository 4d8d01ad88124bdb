#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kelvane {

// The system's users and groups. Callable on any thread; a lookup can block on a directory service.
class Accounts {
public:
    Accounts() = default;
    virtual ~Accounts() = default;
    Accounts(const Accounts&) = delete;
    Accounts& operator=(const Accounts&) = delete;

    // None when there is no such user or group, or the database cannot be read.
    [[nodiscard]] virtual std::optional<std::string> userName(std::uint32_t uid) const = 0;
    [[nodiscard]] virtual std::optional<std::string> groupName(std::uint32_t gid) const = 0;
};

class SystemAccounts : public Accounts {
public:
    // `initialBufferSize` is in bytes; the buffer grows for larger records, such as a group of many
    // members.
    explicit SystemAccounts(std::size_t initialBufferSize = 1024) : initialBufferSize_(initialBufferSize) {}

    [[nodiscard]] std::optional<std::string> userName(std::uint32_t uid) const override;
    [[nodiscard]] std::optional<std::string> groupName(std::uint32_t gid) const override;

private:
    const std::size_t initialBufferSize_;
};

} // namespace kelvane
