#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// The user's preferences domain "com.kelvane.preferences", which other processes of the product read and
// write too. Kept in memory: the first read loads it, one that synchronizes loads it again. A write is on the
// disk when it returns, without touching what others wrote to other keys meanwhile.
//
// Main thread only: the domain and `lastReadOK` are shared by the whole process. Nothing here fails towards
// the caller. A file that cannot be read leaves the values known so far, and a write that fails is logged,
// holds until the next reload, and is tried again with the next write. A write blocks on the disk, and for at
// most two seconds on another process that is writing.
class DefaultsDB {
public:
    DefaultsDB() = delete;

    // None for an absent key, and for a value that is no text: a number is its decimal text; dates, data and
    // containers have none, and text must not be made up from them for a field that shows it.
    [[nodiscard]] static std::optional<std::string> stringProperty(std::string_view key,
                                                                   bool synchronize = false);
    [[nodiscard]] static std::string stringProperty(std::string_view key, bool synchronize,
                                                    std::string_view withDefaultValue);
    // A default in the place of the bool would be taken for one.
    static std::optional<std::string> stringProperty(std::string_view key,
                                                     const char* withDefaultValue) = delete;
    static void setStringProperty(std::string_view value, std::string_view forItem);

    // A stored text reads as the number that it begins with, kept within the range.
    [[nodiscard]] static std::int32_t intProperty(std::string_view key, bool synchronize = false);
    [[nodiscard]] static std::int32_t intProperty(std::string_view key, bool synchronize,
                                                  std::int32_t withDefaultValue);
    static std::int32_t intProperty(std::string_view key, std::int32_t withDefaultValue) = delete;
    static void setIntProperty(std::int32_t value, std::string_view forItem);

    // Booleans are the texts "YES" and "NO". Everything but exactly "YES" reads as false.
    [[nodiscard]] static bool boolProperty(std::string_view key, bool synchronize = false);
    [[nodiscard]] static bool boolProperty(std::string_view key, bool synchronize, bool withDefaultValue);
    static void setBoolProperty(bool value, std::string_view forItem);

    // Whether the key of the read before had a value.
    [[nodiscard]] static bool lastReadOK();

    // Told to the other processes by whoever changed a setting that they watch, with the sender.
    [[nodiscard]] static std::string propertyChangedNotificationString();
    [[nodiscard]] static std::string propertyChangedSenderString();
};

} // namespace kelvane
