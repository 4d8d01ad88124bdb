#include "Platform/Accounts.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <vector>

namespace kelvane {
namespace {

// In bytes. The record of a group lists all its members.
constexpr std::size_t largestBuffer = std::size_t{16} << 20U;

// `lookUp` fills the `Record`, and fails with ERANGE when the buffer is too small.
template <class Record, class Lookup>
std::optional<Record> record(Lookup lookUp, std::vector<char>& buffer) {
    while (buffer.size() <= largestBuffer) {
        Record entry{};
        Record* found = nullptr;
        const int error = lookUp(&entry, buffer.data(), buffer.size(), &found);
        if (error == 0)
            return found ? std::optional(entry) : std::nullopt;
        if (error == ERANGE) {
            buffer.resize(buffer.size() * 2);
        } else if (error != EINTR) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> SystemAccounts::userName(std::uint32_t uid) const {
    std::vector<char> buffer(initialBufferSize_);
    const auto user =
        record<passwd>([uid](passwd* entry, char* text, std::size_t size,
                             passwd** found) { return ::getpwuid_r(uid, entry, text, size, found); },
                       buffer);
    return user ? std::optional<std::string>(user->pw_name) : std::nullopt;
}

std::optional<std::string> SystemAccounts::groupName(std::uint32_t gid) const {
    std::vector<char> buffer(initialBufferSize_);
    const auto foundGroup =
        record<group>([gid](group* entry, char* text, std::size_t size,
                            group** found) { return ::getgrgid_r(gid, entry, text, size, found); },
                      buffer);
    return foundGroup ? std::optional<std::string>(foundGroup->gr_name) : std::nullopt;
}

} // namespace kelvane
