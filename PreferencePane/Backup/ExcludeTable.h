#pragma once

#include "Common/FileNode/FileNode.h"

#include <QTableView>
#include <functional>
#include <string>
#include <vector>

namespace kelvane {

class ExcludeTableModel;
class PaneServices;

// The list of excluded items. Takes files that are dropped anywhere on it, several at once, and the keys
// Insert and Delete. What it shows changes only by `setNodes`.
class ExcludeTable : public QTableView {
    Q_OBJECT
public:
    explicit ExcludeTable(QWidget* parent = nullptr);

    void setServices(const PaneServices& prefs);
    // Whether a drop may change anything; asked anew for each.
    void setAcceptsDrop(std::function<bool()> acceptsDrop) { acceptsDrop_ = std::move(acceptsDrop); }

    // Rows that stay keep their selection, and the list its place.
    void setNodes(FileNodeList nodes);
    // From the top.
    [[nodiscard]] FileNodeList selectedNodes() const;

signals:
    void tableViewSelectionDidChange();
    // Real paths. Of files that are only promised and have no names yet there are none.
    void dropped(const std::vector<std::string>& paths);
    void insertPressed();
    void deletePressed();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void validateDrop(QDropEvent& event);
    void setDropTarget(bool isDropTarget);

    ExcludeTableModel* model_ = nullptr;
    std::function<bool()> acceptsDrop_;
    bool isDropTarget_ = false;
};

} // namespace kelvane
