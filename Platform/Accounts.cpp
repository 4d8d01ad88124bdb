#include "Platform/Accounts.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <vector>

namespace kelvane {
namespace {

// In bytes. The record of a group lists all its members.
constexpr std::size_t largestRoom = std::size_t{16} << 20U;

// `lookUp` fills the `Record`, and fails with ERANGE when the buffer is too small.
template <class Record, class Lookup>
std::optional<Record> record(Lookup lookUp, std::vector<char>& room) {
    while (room.size() <= largestRoom) {
        Record entry{};
        Record* found = nullptr;
        const int error = lookUp(&entry, room.data(), room.size(), &found);
        if (error == 0)
            return found ? std::optional(entry) : std::nullopt;
        if (error == ERANGE) {
            room.resize(room.size() * 2);
        } else if (error != EINTR) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> SystemAccounts::userName(std::uint32_t uid) const {
    std::vector<char> room(firstRoom_);
    const auto user =
        record<passwd>([uid](passwd* entry, char* text, std::size_t size,
                             passwd** found) { return ::getpwuid_r(uid, entry, text, size, found); },
                       room);
    return user ? std::optional<std::string>(user->pw_name) : std::nullopt;
}

std::optional<std::string> SystemAccounts::groupName(std::uint32_t gid) const {
    std::vector<char> room(firstRoom_);
    const auto foundGroup =
        record<group>([gid](group* entry, char* text, std::size_t size,
                            group** found) { return ::getgrgid_r(gid, entry, text, size, found); },
                      room);
    return foundGroup ? std::optional<std::string>(foundGroup->gr_name) : std::nullopt;
}

} // namespace kelvane
