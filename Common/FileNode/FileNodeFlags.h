#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace kelvane {

// The names of the coded fields of a file node, shared by daemon and pane. Each table is in the order in
// which its names are written, and is the only place where the numbers are defined.

// A mask of one bit is a flag; a mask of several bits is a number.
struct FlagName {
    std::uint32_t mask;
    std::string_view name;

    [[nodiscard]] constexpr bool isNumber() const { return !std::has_single_bit(mask); }
    [[nodiscard]] constexpr std::uint32_t number(std::uint32_t word) const {
        return (word & mask) >> static_cast<unsigned>(std::countr_zero(mask));
    }
};

inline constexpr FlagName backupFlagNames[] = {
    {0x0000000F, "Backup_Priority"},
    {0x00000010, "Backup_Backup"},
    {0x00000020, "Backup_BackedUp"},
    {0x00000040, "Backup_Exclude"},
    {0x00000080, "Backup_Include"},
    {0x00000100, "Backup_Extra"},
    {0x00000200, "Backup_System"},
    {0x00000400, "Backup_Not_Active"},
    {0x00000800, "Backup_Folder"},
    {0x00001000, "Backup_Missing"},
    // One bit with two names; both are written.
    {0x00020000, "Backup_No_Folder"},
    {0x00020000, "Backup_Folder_Exclude"},
    {0x08000000, "Backup_Folder_Include"},
    {0x20000000, "Backup_Excluded_Visible"},
};
inline constexpr std::string_view noBackupFlagsName = "Backup_Undefined";

// The states of three check boxes: the item's, its file type's and its priority's.
inline constexpr FlagName simpleFlagNames[] = {
    {0x00000001, "Backup_Simple_Checked"},          {0x00000002, "Backup_Simple_Enabled"},
    {0x00000004, "Backup_Simple_Grayed"},           {0x00000100, "Backup_Simple_Type_Checked"},
    {0x00000200, "Backup_Simple_Type_Enabled"},     {0x00000400, "Backup_Simple_Type_Visible"},
    {0x00010000, "Backup_Simple_Priority_Checked"}, {0x00020000, "Backup_Simple_Priority_Enabled"},
    {0x00040000, "Backup_Simple_Priority_Visible"},
};
inline constexpr std::string_view noSimpleFlagsName = "Backup_Simple_None";

// The colours of the bullet beside an item; the index is the value of `backupColor`.
inline constexpr std::string_view backupColorNames[] = {
    "Backup_Color_Undefined", "Backup_Color_None", "Backup_Color_Green",
    "Backup_Color_Yellow",    "Backup_Color_Gray", "Backup_Color_Blue",
};

namespace detail {

template <std::size_t count>
consteval std::uint32_t maskNamed(const FlagName (&table)[count], std::string_view name) {
    for (const FlagName& flag : table)
        if (flag.name == name)
            return flag.mask;
    throw std::invalid_argument("no flag has this name");
}

consteval std::int32_t colorNamed(std::string_view name) {
    for (std::size_t color = 0; color < std::size(backupColorNames); ++color)
        if (backupColorNames[color] == name)
            return static_cast<std::int32_t>(color);
    throw std::invalid_argument("no colour has this name");
}

} // namespace detail

inline constexpr std::uint32_t Backup_Priority = detail::maskNamed(backupFlagNames, "Backup_Priority");
inline constexpr std::uint32_t Backup_Backup = detail::maskNamed(backupFlagNames, "Backup_Backup");
inline constexpr std::uint32_t Backup_BackedUp = detail::maskNamed(backupFlagNames, "Backup_BackedUp");
inline constexpr std::uint32_t Backup_Exclude = detail::maskNamed(backupFlagNames, "Backup_Exclude");
inline constexpr std::uint32_t Backup_Include = detail::maskNamed(backupFlagNames, "Backup_Include");
inline constexpr std::uint32_t Backup_Extra = detail::maskNamed(backupFlagNames, "Backup_Extra");
inline constexpr std::uint32_t Backup_System = detail::maskNamed(backupFlagNames, "Backup_System");
inline constexpr std::uint32_t Backup_Not_Active = detail::maskNamed(backupFlagNames, "Backup_Not_Active");
inline constexpr std::uint32_t Backup_Folder = detail::maskNamed(backupFlagNames, "Backup_Folder");
inline constexpr std::uint32_t Backup_Missing = detail::maskNamed(backupFlagNames, "Backup_Missing");
inline constexpr std::uint32_t Backup_No_Folder = detail::maskNamed(backupFlagNames, "Backup_No_Folder");
inline constexpr std::uint32_t Backup_Folder_Exclude =
    detail::maskNamed(backupFlagNames, "Backup_Folder_Exclude");
inline constexpr std::uint32_t Backup_Folder_Include =
    detail::maskNamed(backupFlagNames, "Backup_Folder_Include");
inline constexpr std::uint32_t Backup_Excluded_Visible =
    detail::maskNamed(backupFlagNames, "Backup_Excluded_Visible");

inline constexpr std::uint32_t Backup_Simple_Checked =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Checked");
inline constexpr std::uint32_t Backup_Simple_Enabled =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Enabled");
inline constexpr std::uint32_t Backup_Simple_Grayed =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Grayed");
inline constexpr std::uint32_t Backup_Simple_Type_Checked =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Type_Checked");
inline constexpr std::uint32_t Backup_Simple_Type_Enabled =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Type_Enabled");
inline constexpr std::uint32_t Backup_Simple_Type_Visible =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Type_Visible");
inline constexpr std::uint32_t Backup_Simple_Priority_Checked =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Priority_Checked");
inline constexpr std::uint32_t Backup_Simple_Priority_Enabled =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Priority_Enabled");
inline constexpr std::uint32_t Backup_Simple_Priority_Visible =
    detail::maskNamed(simpleFlagNames, "Backup_Simple_Priority_Visible");

inline constexpr std::int32_t Backup_Color_Undefined = detail::colorNamed("Backup_Color_Undefined");
inline constexpr std::int32_t Backup_Color_None = detail::colorNamed("Backup_Color_None");
inline constexpr std::int32_t Backup_Color_Green = detail::colorNamed("Backup_Color_Green");
inline constexpr std::int32_t Backup_Color_Yellow = detail::colorNamed("Backup_Color_Yellow");
inline constexpr std::int32_t Backup_Color_Gray = detail::colorNamed("Backup_Color_Gray");
inline constexpr std::int32_t Backup_Color_Blue = detail::colorNamed("Backup_Color_Blue");

} // namespace kelvane
