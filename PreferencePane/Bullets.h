#pragma once

#include "Platform/Bundle.h"

#include <QIcon>
#include <cstdint>

namespace kelvane {

// The bullets that say in colour and shape what is backed up: PNG resources of the bundle, with a second one
// of twice the size where the screen is that fine. Main thread only. A picture that is missing is an empty
// one.
class Bullets {
public:
    void load(const Bundle& bundle);

    // Red for what is no colour of a backup. A gray item, a folder with something of both, has the partly
    // green bullet; the gray one marks nothing here.
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
