#pragma once

#include "Platform/Bundle.h"

#include <QIcon>
#include <cstdint>

namespace kelvane {

// The bullets that show the backup state by colour and shape: PNG resources of the bundle, each with a
// double-size variant for high-resolution screens. Main thread only. A missing image gives an empty icon.
class Bullets {
public:
    void load(const Bundle& bundle);

    // Red for a number that is not a backup colour. A gray item, which is a folder with mixed contents, has
    // the partly green bullet; the gray bullet is not used here.
    [[nodiscard]] const QIcon& imageForColor(std::int32_t color) const;

private:
    QIcon blue_;
    QIcon gray_;
    QIcon greenPartial_;
    QIcon green_;
    QIcon red_;
    QIcon yellow_;
};

} // namespace kelvane
