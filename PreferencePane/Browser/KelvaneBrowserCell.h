#pragma once

#include <QIcon>
#include <QRect>
#include <QString>
#include <string>

class QPainter;
class QStyleOptionViewItem;

namespace kelvane {

// One row of a column browser: bullet, icon, title and path of a file or folder. A value type; main thread
// only. Texts are UTF-8.
class KelvaneBrowserCell {
public:
    KelvaneBrowserCell() = default;
    KelvaneBrowserCell(std::string title, std::string filePath)
        : title_(std::move(title)), filePath_(std::move(filePath)) {}

    [[nodiscard]] const std::string& title() const { return title_; }
    // Empty when there is none.
    [[nodiscard]] const std::string& getFilePath() const { return filePath_; }
    void setFilePath(std::string path) { filePath_ = std::move(path); }
    [[nodiscard]] const QIcon& bulletImage() const { return bulletImage_; }
    void setBulletImage(const QIcon& image) { bulletImage_ = image; }
    // A cell without an image gets one from the browser's delegate when its row is first shown.
    [[nodiscard]] const QIcon& image() const { return image_; }
    void setImage(const QIcon& image) { image_ = image; }
    // The meaning of the bullet as text.
    [[nodiscard]] const std::string& stateText() const { return stateText_; }
    void setStateText(std::string text) { stateText_ = std::move(text); }
    // A leaf opens no column.
    [[nodiscard]] bool isLeaf() const { return isLeaf_; }
    void setLeaf(bool isLeaf) { isLeaf_ = isLeaf; }
    [[nodiscard]] bool isEnabled() const { return isEnabled_; }
    void setEnabled(bool isEnabled) { isEnabled_ = isEnabled; }

    // On one line: control characters, and those that change the text direction, are replaced.
    [[nodiscard]] QString shownTitle() const;
    // The full title if it does not fit into the frame, and the state; empty when that adds nothing.
    [[nodiscard]] QString toolTip(const QRect& frame, const QStyleOptionViewItem& look) const;

    // Zero without a bullet.
    [[nodiscard]] QSize bulletSize() const;
    // Draws the bullet at the frame's origin, and icon and title to the right of it. `look` gives selection,
    // palette and font.
    void drawInteriorWithFrame(const QRect& frame, QPainter& painter, const QStyleOptionViewItem& look) const;

private:
    [[nodiscard]] QRect titleRect(const QRect& frame) const;
    void drawBullet(const QRect& frame, QPainter& painter, const QStyleOptionViewItem& look) const;
    void drawIconAndTitle(const QRect& frame, QPainter& painter, const QStyleOptionViewItem& look) const;

    std::string title_;
    std::string filePath_;
    std::string stateText_;
    QIcon bulletImage_;
    QIcon image_;
    bool isLeaf_ = false;
    bool isEnabled_ = true;
};

// Whether both look and behave the same, apart from their icons.
[[nodiscard]] bool showsTheSame(const KelvaneBrowserCell& one, const KelvaneBrowserCell& other);

} // namespace kelvane
