#include "PreferencePane/Backup/ExcludeTableModel.h"

#include "PreferencePane/Browser/KelvaneBrowserCell.h"
#include "PreferencePane/Services/OneLineLabel.h"

namespace kelvane {
namespace {

// Column names by index; also the keys of the headings and their English texts.
constexpr std::string_view columnNames[] = {"Name", "Owner"};
constexpr int nameColumn = 0;

} // namespace

void ExcludeTableModel::setNodes(FileNodeList nodes) {
    beginResetModel();
    nodes_ = std::move(nodes);
    endResetModel();
}

int ExcludeTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(nodes_.size());
}

int ExcludeTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(std::size(columnNames));
}

QVariant ExcludeTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const KelvaneFileNode& node = *nodes_[static_cast<std::size_t>(index.row())];
    if (role == Qt::DisplayRole)
        return shownText(node, index.column());
    if (role == Qt::ToolTipRole)
        return plainToolTip(QString::fromStdString(node.path()));
    return {};
}

QVariant ExcludeTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return prefs_.qtext(columnNames[section]);
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole)
        return QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    return QAbstractTableModel::headerData(section, orientation, role);
}

QString ExcludeTableModel::shownText(const KelvaneFileNode& node, int column) const {
    if (column == nameColumn)
        return KelvaneBrowserCell(node.fileName(), {}).shownTitle();
    return QString::fromStdString(node.uidString(prefs_.fileServices().accounts()));
}

} // namespace kelvane
