#pragma once

#include "PreferencePane/Status/StatusModes.h"

#include <QComboBox>
#include <optional>

namespace kelvane {

// The pop-up of the daemon's modes. A choice has consequences, so it takes an open list and a decision: no
// wheel, and no key that steps through the items while it is closed. `activated` reports a person's choice
// and nothing else.
//
// What it is to show while its list is open is shown once the list has closed: nothing moves under the
// pointer. An item may so be chosen that is no longer enabled.
class ModeComboBox : public QComboBox {
    Q_OBJECT

public:
    explicit ModeComboBox(QWidget* parent = nullptr);

    // -1, or what is no item, selects none.
    void showMode(std::int32_t index, const ModeItems& enabledItems);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Shown {
        std::int32_t index = -1;
        ModeItems enabledItems{};
    };

    void setModePopupItem(int index, bool enabled);
    void showPostponed();

    std::optional<Shown> postponed_;
};

} // namespace kelvane
