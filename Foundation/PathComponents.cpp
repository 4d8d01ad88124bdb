#include "Foundation/PathComponents.h"

namespace kelvane {
namespace {

constexpr char separator = '/';

// Removes the first name from `path` and returns it; empty when there is none.
std::string_view takeName(std::string_view& path) {
    const std::size_t start = path.find_first_not_of(separator);
    if (start == std::string_view::npos)
        return {};
    path.remove_prefix(start);
    const std::string_view name = path.substr(0, path.find(separator));
    path.remove_prefix(name.size());
    return name;
}

void appendNames(std::string& path, std::string_view names) {
    for (std::string_view name = takeName(names); !name.empty(); name = takeName(names)) {
        if (!path.empty() && path.back() != separator)
            path += separator;
        path += name;
    }
}

std::string_view withoutTrailingSeparators(std::string_view path) {
    const std::size_t last = path.find_last_not_of(separator);
    return last == std::string_view::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

} // namespace

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> components;
    if (isAbsolutePath(path))
        components.emplace_back(1, separator);
    for (std::string_view name = takeName(path); !name.empty(); name = takeName(path))
        components.emplace_back(name);
    return components;
}

std::string pathWithComponents(const std::vector<std::string>& components) {
    std::string path;
    for (const std::string& component : components) {
        if (path.empty() && isAbsolutePath(component))
            path = separator;
        appendNames(path, component);
    }
    return path;
}

std::string appendPathComponent(std::string_view path, std::string_view component) {
    std::string joined;
    joined.reserve(path.size() + component.size() + 1);
    if (isAbsolutePath(path.empty() ? component : path))
        joined = separator;
    appendNames(joined, path);
    appendNames(joined, component);
    return joined;
}

std::string lastPathComponent(std::string_view path) {
    path = withoutTrailingSeparators(path);
    const std::size_t last = path.rfind(separator);
    return std::string(path.size() == 1 || last == std::string_view::npos ? path : path.substr(last + 1));
}

std::string deleteLastPathComponent(std::string_view path) {
    path = withoutTrailingSeparators(path);
    const std::size_t last = path.rfind(separator);
    if (last == std::string_view::npos)
        return {};
    return appendPathComponent(path.substr(0, last + 1), {});
}

std::string pathExtension(std::string_view path) {
    const std::string name = lastPathComponent(path);
    const std::size_t dot = name.rfind('.');
    // An extension needs a name before its dot that is not made of dots alone.
    if (dot == std::string::npos || name.find_first_not_of('.') >= dot)
        return {};
    return name.substr(dot + 1);
}

} // namespace kelvane
