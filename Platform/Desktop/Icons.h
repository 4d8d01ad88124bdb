#pragma once

#include "Platform/Bundle.h"
#include "Platform/Files/FileServices.h"

#include <QIcon>
#include <memory>
#include <string_view>

namespace kelvane {

// For widgets; a null icon when there is none.
[[nodiscard]] QIcon qIcon(const IconHandle& icon);
[[nodiscard]] IconHandle iconHandle(const QIcon& icon);

// Finds icons by their names in the desktop icon theme ("folder", "computer"): first an SVG of that name in
// the bundle's resources (Resources/folder.svg), then the theme. Main thread only; needs a QGuiApplication.
// Caches what it finds.
class Icons {
public:
    explicit Icons(std::shared_ptr<const Bundle> bundle);

    // None when neither has the icon.
    [[nodiscard]] IconHandle named(std::string_view name) const;

    [[nodiscard]] IconHandle folder() const { return named("folder"); }
    [[nodiscard]] IconHandle file() const { return named("text-x-generic"); }
    [[nodiscard]] IconHandle disk() const { return named("drive-harddisk"); }
    [[nodiscard]] IconHandle computer() const { return named("computer"); }
    // The icon of a kind of file, found by the file name's extension; the generic file icon when the kind has
    // none.
    [[nodiscard]] IconHandle fileNamed(std::string_view fileName) const;

private:
    const std::shared_ptr<const Bundle> bundle_;
    mutable std::map<std::string, IconHandle, std::less<>> found_;
};

} // namespace kelvane
