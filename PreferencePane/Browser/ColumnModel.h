#pragma once

#include "PreferencePane/Browser/ColumnBrowserDelegate.h"

#include <QAbstractListModel>
#include <QItemSelectionModel>
#include <QPointer>
#include <functional>
#include <vector>

namespace kelvane {

struct RowRun;

// The rows of one column. They change only by `setRows` and `setCell`, and by no more than what is new: who
// holds an index of a row, as a selection does, finds it again at the row's new place.
class ColumnModel : public QAbstractListModel {
    Q_OBJECT
public:
    using ImageSource = std::function<QIcon(const KelvaneBrowserCell&)>;

    ColumnModel(ImageSource imageSource, QObject* parent);

    // Enabling and disabling rows changes nothing in it: one that is selected stays so when it is disabled.
    void setSelection(QItemSelectionModel* selection) { selection_ = selection; }
    // Disabled rows that are not selected any more can no longer be.
    void releaseDeselectedRows();

    void setRows(BrowserRows cells);
    void setCell(int row, const KelvaneBrowserCell& cell);

    [[nodiscard]] int count() const { return static_cast<int>(rows_.size()); }
    [[nodiscard]] const KelvaneBrowserCell& cell(int row) const {
        return rows_.at(static_cast<std::size_t>(row)).cell;
    }
    // With its image, which is asked for now if nobody has yet.
    [[nodiscard]] const KelvaneBrowserCell& shownCell(int row) const;

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    struct Row {
        KelvaneBrowserCell cell;
        bool askedForImage = false;
        bool isHeld = false; // selected, though disabled
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
    mutable std::vector<Row> rows_; // an image comes while painting
};

} // namespace kelvane
