#pragma once

#include "PreferencePane/Browser/ColumnBrowserDelegate.h"

#include <QAbstractListModel>
#include <QItemSelectionModel>
#include <QPointer>
#include <functional>
#include <vector>

namespace kelvane {

struct RowRun;

// The rows of one column. `setRows` and `setCell` change only what differs, so that an index of a row, as in
// a selection, follows it to its new place.
class ColumnModel : public QAbstractListModel {
    Q_OBJECT
public:
    using ImageSource = std::function<QIcon(const KelvaneBrowserCell&)>;

    ColumnModel(ImageSource imageSource, QObject* parent);

    // Enabling and disabling rows does not change the selection: a selected row stays selected when disabled.
    void setSelection(QItemSelectionModel* selection) { selection_ = selection; }
    // Disabled rows that were deselected become unselectable.
    void releaseDeselectedRows();

    void setRows(BrowserRows cells);
    void setCell(int row, const KelvaneBrowserCell& cell);

    [[nodiscard]] int count() const { return static_cast<int>(rows_.size()); }
    [[nodiscard]] const KelvaneBrowserCell& cell(int row) const {
        return rows_.at(static_cast<std::size_t>(row)).cell;
    }
    // The cell with its image, which is loaded at the first call.
    [[nodiscard]] const KelvaneBrowserCell& shownCell(int row) const;

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    struct Row {
        KelvaneBrowserCell cell;
        bool askedForImage = false;
        bool isHeld = false; // selected although disabled
    };

    void removeGoneRows(std::vector<int>& places);
    void updateRows(const BrowserRows& cells, const std::vector<int>& places);
    void insertNewRows(BrowserRows& cells, std::vector<int>& places);
    void appendRows(BrowserRows& cells, const std::vector<RowRun>& runs, std::vector<int>& places);
    void insertRun(BrowserRows& cells, const RowRun& run);
    void sortByPlace(const std::vector<int>& places);
    void reorder(const std::vector<int>& order);
    [[nodiscard]] bool update(int row, const KelvaneBrowserCell& cell);
    void setEnabled(int row, bool isEnabled);

    const ImageSource imageSource_;
    QPointer<QItemSelectionModel> selection_;
    mutable std::vector<Row> rows_; // mutable because images are loaded while painting
};

} // namespace kelvane
