#pragma once

#include "PreferencePane/Status/StatusModes.h"

#include <QComboBox>
#include <optional>

namespace kelvane {

// The pop-up of the daemon's modes. A choice has consequences, so it needs an open list and a decision: the
// wheel is ignored, and keys do not step through the items of the closed pop-up. `activated` is emitted only
// for the user's choices.
//
// A mode set while the list is open is shown after it has closed, so that nothing moves under the pointer. An
// item may therefore be chosen that is no longer enabled.
class ModeComboBox : public QComboBox {
    Q_OBJECT

public:
    explicit ModeComboBox(QWidget* parent = nullptr);

    // -1 or an invalid index selects no item.
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
