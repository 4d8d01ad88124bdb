#pragma once

#include "Common/FileNode/FileNode.h"

#include <QTableView>
#include <functional>
#include <string>
#include <vector>

namespace kelvane {

class ExcludeTableModel;
class PaneServices;

// The list of exclusions. Accepts file drops anywhere on it, several at once, and the keys Insert and Delete.
// Its contents change only by `setNodes`.
class ExcludeTable : public QTableView {
    Q_OBJECT
public:
    explicit ExcludeTable(QWidget* parent = nullptr);

    void setServices(const PaneServices& prefs);
    // Whether drops are accepted; called again at each step of a drag and at the drop.
    void setAcceptsDrop(std::function<bool()> acceptsDrop) { acceptsDrop_ = std::move(acceptsDrop); }

    // Rows that remain keep their selection, and the scroll position stays.
    void setNodes(FileNodeList nodes);
    // Returns the nodes of the selected rows in their order.
    [[nodiscard]] FileNodeList selectedNodes() const;

signals:
    void tableViewSelectionDidChange();
    // Emitted with the absolute paths of the dropped files. Promised files, which have no names yet, are not
    // included.
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
