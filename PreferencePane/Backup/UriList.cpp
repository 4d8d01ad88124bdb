#include "PreferencePane/Backup/UriList.h"

#include "Foundation/PathComponents.h"

#include <QByteArray>
#include <QString>
#include <filesystem>
#include <optional>

namespace kelvane {
namespace {

constexpr std::string_view scheme = "file:";
constexpr std::string_view authorityMark = "//";
constexpr std::string_view sameHost = "localhost";

std::string_view takeLine(std::string_view& list) {
    const std::size_t end = std::min(list.find('\n'), list.size());
    std::string_view line = list.substr(0, end);
    list.remove_prefix(std::min(end + 1, list.size()));
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

// The part after "file:" and this machine's name; none for a file of another machine.
std::optional<std::string_view> encodedPath(std::string_view uri, std::string_view hostName) {
    const QLatin1StringView beginning(uri.substr(0, scheme.size()));
    if (beginning.compare(QLatin1StringView(scheme), Qt::CaseInsensitive) != 0)
        return std::nullopt;
    uri.remove_prefix(scheme.size());
    if (!uri.starts_with(authorityMark))
        return uri;
    uri.remove_prefix(authorityMark.size());
    const std::string_view host = uri.substr(0, uri.find('/'));
    uri.remove_prefix(host.size());
    return host.empty() || host == sameHost || host == hostName ? std::optional(uri) : std::nullopt;
}

std::optional<std::string> pathOf(std::string_view uri, std::string_view hostName) {
    const std::optional<std::string_view> encoded = encodedPath(uri, hostName);
    if (!encoded)
        return std::nullopt;
    const std::string path =
        QByteArray::fromPercentEncoding(QByteArray(encoded->data(), static_cast<qsizetype>(encoded->size())))
            .toStdString();
    if (!path.starts_with('/') || path.find('\0') != std::string::npos)
        return std::nullopt;
    return pathWithComponents(pathComponents(std::filesystem::path(path).lexically_normal().string()));
}

} // namespace

UriList pathsOfUriList(std::string_view list, std::string_view hostName) {
    UriList found;
    while (!list.empty()) {
        const std::string_view line = takeLine(list);
        if (line.empty() || line.starts_with('#'))
            continue;
        if (auto path = pathOf(line, hostName))
            found.paths.push_back(std::move(*path));
        else
            found.others.emplace_back(line);
    }
    return found;
}

} // namespace kelvane
