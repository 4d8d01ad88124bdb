#pragma once

#include "Common/FileNode/FileNode.h"
#include "PreferencePane/Services/PaneServices.h"

#include <QAbstractTableModel>

namespace kelvane {

// The excluded items at the last refresh: name and owner, with the path as a tool tip.
class ExcludeTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    ExcludeTableModel(const PaneServices& prefs, QObject* parent)
        : QAbstractTableModel(parent), prefs_(prefs) {}

    void setNodes(FileNodeList nodes);
    // Returns the nodes in the order of the rows.
    [[nodiscard]] const FileNodeList& nodes() const { return nodes_; }

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    [[nodiscard]] QString shownText(const KelvaneFileNode& node, int column) const;

    const PaneServices& prefs_;
    FileNodeList nodes_;
};

} // namespace kelvane
