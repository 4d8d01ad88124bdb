#include "PreferencePane/Browser/ColumnModel.h"

#include "PreferencePane/Browser/RowDifference.h"

#include <algorithm>
#include <numeric>

namespace kelvane {
namespace {

// Rows to remove or insert that form more runs than this are gathered into one run, because each run that is
// removed or inserted moves the rows below it.
constexpr std::size_t mostRuns = 16;

constexpr std::size_t slot(int row) {
    return static_cast<std::size_t>(row);
}

template <class Rows, class CellOf>
std::vector<RowKey> keysOf(const Rows& rows, CellOf cellOf) {
    std::vector<RowKey> keys;
    keys.reserve(rows.size());
    for (const auto& row : rows)
        keys.push_back(rowKey(cellOf(row)));
    return keys;
}

std::vector<int> naturalOrder(int count) {
    std::vector<int> order(slot(count));
    std::iota(order.begin(), order.end(), 0);
    return order;
}

} // namespace

ColumnModel::ColumnModel(ImageSource imageSource, QObject* parent)
    : QAbstractListModel(parent), imageSource_(std::move(imageSource)) {}

void ColumnModel::releaseDeselectedRows() {
    for (int row = 0; row < count(); ++row)
        if (rows_[slot(row)].isHeld && !selection_->isSelected(index(row)))
            rows_[slot(row)].isHeld = false;
}

void ColumnModel::setRows(BrowserRows cells) {
    std::vector<int> places = placesAmong(keysOf(cells, std::identity()),
                                          keysOf(
                                              rows_, [](const Row& row) -> auto& { return row.cell; }));
    removeGoneRows(places);
    updateRows(cells, places);
    insertNewRows(cells, places);
}

void ColumnModel::setCell(int row, const KelvaneBrowserCell& cell) {
    if (update(row, cell))
        emit dataChanged(index(row), index(row));
}

const KelvaneBrowserCell& ColumnModel::shownCell(int row) const {
    Row& shown = rows_.at(slot(row));
    if (shown.cell.image().isNull() && !shown.askedForImage) {
        shown.askedForImage = true;
        shown.cell.setImage(imageSource_(shown.cell));
    }
    return shown.cell;
}

int ColumnModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : count();
}

QVariant ColumnModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const KelvaneBrowserCell& shown = cell(index.row());
    if (role == Qt::DisplayRole)
        return shown.shownTitle();
    if (role == Qt::AccessibleTextRole && !shown.stateText().empty())
        return QString(shown.shownTitle() + ", " + QString::fromStdString(shown.stateText()));
    return {};
}

Qt::ItemFlags ColumnModel::flags(const QModelIndex& index) const {
    if (!index.isValid())
        return Qt::NoItemFlags;
    const Row& row = rows_[slot(index.row())];
    const Qt::ItemFlags usable = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    return Qt::ItemNeverHasChildren | (row.cell.isEnabled() || row.isHeld ? usable : Qt::NoItemFlags);
}

void ColumnModel::removeGoneRows(std::vector<int>& places) {
    const auto isGone = [&](int row) { return places[slot(row)] == gonePlace; };
    std::vector<RowRun> runs = runsOf(count(), isGone);
    if (runs.size() > mostRuns) {
        std::vector<int> order = naturalOrder(count());
        const auto gone = std::stable_partition(order.begin(), order.end(), std::not_fn(isGone));
        runs = {{static_cast<int>(gone - order.begin()), count() - 1}};
        reorder(order);
    }
    for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
        beginRemoveRows({}, run->first, run->last);
        rows_.erase(rows_.begin() + run->first, rows_.begin() + run->last + 1);
        endRemoveRows();
    }
    std::erase(places, gonePlace);
}

void ColumnModel::updateRows(const BrowserRows& cells, const std::vector<int>& places) {
    const auto changes = [&](int row) { return update(row, cells[slot(places[slot(row)])]); };
    for (const RowRun& run : runsOf(count(), changes))
        emit dataChanged(index(run.first), index(run.last));
}

void ColumnModel::insertNewRows(BrowserRows& cells, std::vector<int>& places) {
    std::vector<bool> isOld(cells.size());
    for (const int place : places)
        isOld[slot(place)] = true;
    const std::vector<RowRun> runs =
        runsOf(static_cast<int>(cells.size()), [&](int place) { return !isOld[slot(place)]; });
    if (runs.size() > mostRuns) {
        appendRows(cells, runs, places);
        sortByPlace(places);
        return;
    }
    sortByPlace(places);
    for (const RowRun& run : runs)
        insertRun(cells, run);
}

void ColumnModel::appendRows(BrowserRows& cells, const std::vector<RowRun>& runs, std::vector<int>& places) {
    const int added = static_cast<int>(cells.size()) - count();
    beginInsertRows({}, count(), count() + added - 1);
    for (const RowRun& run : runs) {
        for (int place = run.first; place <= run.last; ++place) {
            rows_.push_back({std::move(cells[slot(place)])});
            places.push_back(place);
        }
    }
    endInsertRows();
}

void ColumnModel::insertRun(BrowserRows& cells, const RowRun& run) {
    beginInsertRows({}, run.first, run.last);
    const auto inserted = rows_.insert(rows_.begin() + run.first, slot(run.last + 1 - run.first), Row());
    std::transform(cells.begin() + run.first, cells.begin() + run.last + 1, inserted,
                   [](KelvaneBrowserCell& cell) { return Row{std::move(cell)}; });
    endInsertRows();
}

void ColumnModel::sortByPlace(const std::vector<int>& places) {
    if (std::ranges::is_sorted(places))
        return;
    std::vector<int> order = naturalOrder(count());
    std::ranges::sort(order, {}, [&](int row) { return places[slot(row)]; });
    reorder(order);
}

// `order` gives the old row of each new one.
void ColumnModel::reorder(const std::vector<int>& order) {
    emit layoutAboutToBeChanged({}, VerticalSortHint);
    std::vector<Row> rows;
    std::vector<int> newRow(order.size());
    rows.reserve(order.size());
    for (const int row : order) {
        newRow[slot(row)] = static_cast<int>(rows.size());
        rows.push_back(std::move(rows_[slot(row)]));
    }
    rows_ = std::move(rows);
    const QModelIndexList before = persistentIndexList();
    QModelIndexList after;
    for (const QModelIndex& index : before)
        after.push_back(this->index(newRow[slot(index.row())]));
    changePersistentIndexList(before, after);
    emit layoutChanged({}, VerticalSortHint);
}

// Returns whether the row looks different. A loaded image stays unless the cell brings one, because it
// depends on nothing that can change in a row.
bool ColumnModel::update(int row, const KelvaneBrowserCell& cell) {
    KelvaneBrowserCell& shown = rows_.at(slot(row)).cell;
    const bool hasNewImage = !cell.image().isNull() && cell.image().cacheKey() != shown.image().cacheKey();
    if (!hasNewImage && showsTheSame(shown, cell))
        return false;
    if (shown.isEnabled() != cell.isEnabled())
        setEnabled(row, cell.isEnabled());
    const QIcon image = hasNewImage ? cell.image() : shown.image();
    shown = cell;
    shown.setImage(image);
    return true;
}

// Qt counts a row as selected only if it lies in a selected range and is selectable. `isHeld` therefore keeps
// a row selected that is disabled while selected, and a row that is enabled inside a selected range is
// deselected.
void ColumnModel::setEnabled(int row, bool isEnabled) {
    QItemSelectionModel* const selection = selection_;
    const bool wasSelected = selection != nullptr && selection->isSelected(index(row));
    rows_[slot(row)].isHeld = !isEnabled && wasSelected;
    rows_[slot(row)].cell.setEnabled(isEnabled);
    if (selection != nullptr && isEnabled && !wasSelected)
        selection->select(index(row), QItemSelectionModel::Deselect);
}

} // namespace kelvane
