#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// The user's preferences domain "com.kelvane.preferences", which other processes of the product also use. The
// first read loads it into memory; a read with `synchronize` loads it again. A write is on the disk when it
// returns, and does not affect keys that other processes have written in the meantime.
//
// Main thread only: the domain and `lastReadOK` are shared by the whole process. No function reports a
// failure to its caller. If the file cannot be read, the known values stay. A write that fails is logged, is
// effective until the next reload, and is repeated with the next write. A write blocks on the disk, and for
// at most two seconds while another process writes.
class DefaultsDB {
public:
    DefaultsDB() = delete;

    // Returns nothing for an absent key, and for dates, data and containers, for which there is no text that
    // could be shown in a field. A number is returned as decimal text.
    [[nodiscard]] static std::optional<std::string> stringProperty(std::string_view key,
                                                                   bool synchronize = false);
    [[nodiscard]] static std::string stringProperty(std::string_view key, bool synchronize,
                                                    std::string_view withDefaultValue);
    // Deleted because a default value in the second place would convert to `synchronize`.
    static std::optional<std::string> stringProperty(std::string_view key,
                                                     const char* withDefaultValue) = delete;
    static void setStringProperty(std::string_view value, std::string_view forItem);

    // A stored text is read as the number at its beginning, limited to the range of the type.
    [[nodiscard]] static std::int32_t intProperty(std::string_view key, bool synchronize = false);
    [[nodiscard]] static std::int32_t intProperty(std::string_view key, bool synchronize,
                                                  std::int32_t withDefaultValue);
    static std::int32_t intProperty(std::string_view key, std::int32_t withDefaultValue) = delete;
    static void setIntProperty(std::int32_t value, std::string_view forItem);

    // Booleans are stored as the texts "YES" and "NO". Any other text is read as false.
    [[nodiscard]] static bool boolProperty(std::string_view key, bool synchronize = false);
    [[nodiscard]] static bool boolProperty(std::string_view key, bool synchronize, bool withDefaultValue);
    static void setBoolProperty(bool value, std::string_view forItem);

    // Returns whether the key of the previous read had a value.
    [[nodiscard]] static bool lastReadOK();

    // The notification, and its sender, by which a process informs the others of a change of a setting.
    [[nodiscard]] static std::string propertyChangedNotificationString();
    [[nodiscard]] static std::string propertyChangedSenderString();
};

} // namespace kelvane
