#include "PreferencePane/Browser/ColumnView.h"

#include "PreferencePane/Browser/RowPainter.h"

#include <QKeyEvent>
#include <QPainter>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <algorithm>

namespace kelvane {
namespace {

constexpr int emptyTextMargin = 12; // in logical pixels

} // namespace

ColumnView::ColumnView(ColumnModel::ImageSource imageSource, QWidget* parent)
    : QListView(parent), model_(new ColumnModel(std::move(imageSource), this)) {
    setModel(model_);
    model_->setSelection(selectionModel());
    setItemDelegate(new RowPainter(this));
    setUniformItemSizes(true);
    setSelectionMode(ExtendedSelection);
    setEditTriggers(NoEditTriggers);
    setVerticalScrollMode(ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(NoFrame);
    setTabKeyNavigation(false);
}

void ColumnView::setRows(BrowserRows cells) {
    const QScopedValueRollback quiet(isQuiet_, true);
    std::vector<std::pair<QPersistentModelIndex, int>> seen;
    const int bottom = viewport()->height();
    for (QModelIndex row = indexAt({0, 0}); row.isValid() && visualRect(row).top() < bottom;
         row = row.siblingAtRow(row.row() + 1))
        seen.emplace_back(row, visualRect(row).top());
    model_->setRows(std::move(cells));
    setAccessibleDescription(model_->count() == 0 ? emptyText_ : QString());
    executeDelayedItemsLayout(); // otherwise the next paint would show no rows
    scrollBack(seen);
}

void ColumnView::setCell(int row, const KelvaneBrowserCell& cell) {
    const QScopedValueRollback quiet(isQuiet_, true);
    model_->setCell(row, cell);
}

std::vector<int> ColumnView::selectedRows() const {
    std::vector<int> rows;
    for (const QModelIndex& index : selectionModel()->selectedIndexes())
        rows.push_back(index.row());
    std::ranges::sort(rows);
    return rows;
}

bool ColumnView::isSelected(const QModelIndex& index) const {
    return index.isValid() && selectionModel()->isSelected(index);
}

QModelIndex ColumnView::selectedFolder() const {
    const std::vector<int> selected = selectedRows();
    const bool isFolder = selected.size() == 1 && !model_->cell(selected.front()).isLeaf();
    return isFolder ? model_->index(selected.front()) : QModelIndex();
}

void ColumnView::deselect() {
    const QScopedValueRollback quiet(isQuiet_, true);
    selectionModel()->clearSelection();
}

void ColumnView::select(const QModelIndex& index) {
    const QScopedValueRollback quiet(isQuiet_, true);
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
}

QModelIndex ColumnView::startRow() const {
    if (currentIndex().isValid() && model_->cell(currentIndex().row()).isEnabled())
        return currentIndex();
    for (int row = 0; row < model_->count(); ++row)
        if (model_->cell(row).isEnabled())
            return model_->index(row);
    return {};
}

void ColumnView::selectionChanged(const QItemSelection& selected, const QItemSelection& deselected) {
    QListView::selectionChanged(selected, deselected);
    if (isQuiet_)
        return;
    hasChoice_ = true;
    if (!isHandlingInput_)
        reportChoice();
}

void ColumnView::keyPressEvent(QKeyEvent* event) {
    const bool isPlain = (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier;
    if (isPlain && (event->key() == Qt::Key_Left || event->key() == Qt::Key_Right)) {
        event->accept();
        emit event->key() == Qt::Key_Left ? leftPressed() : rightPressed();
        return;
    }
    {
        const QScopedValueRollback input(isHandlingInput_, true);
        // Without a selection, the first step selects the current row instead of moving past it.
        if (isPlain && event->key() == Qt::Key_Down && selectedRows().empty() && startRow().isValid())
            setCurrentIndex(startRow());
        else
            QListView::keyPressEvent(event);
    }
    reportChoice();
}

// A press on a selected row is a choice, too: of this row alone, closing the columns to its right.
void ColumnView::mousePressEvent(QMouseEvent* event) {
    isHandlingInput_ = true;
    const QModelIndex row = indexAt(event->position().toPoint());
    if (event->button() == Qt::LeftButton && row.isValid() && model_->cell(row.row()).isEnabled())
        hasChoice_ = true;
    QListView::mousePressEvent(event);
}

void ColumnView::mouseReleaseEvent(QMouseEvent* event) {
    QListView::mouseReleaseEvent(event);
    isHandlingInput_ = event->buttons() != Qt::NoButton;
    if (!isHandlingInput_)
        reportChoice();
}

void ColumnView::focusInEvent(QFocusEvent* event) {
    QListView::focusInEvent(event);
    emit focused(event->reason() == Qt::MouseFocusReason);
}

// Opening a column may show a scroll bar over the chosen folder.
void ColumnView::resizeEvent(QResizeEvent* event) {
    const QRect current = visualRect(currentIndex());
    const bool wasSeen = QRect(QPoint(), event->oldSize()).contains(current);
    QListView::resizeEvent(event);
    if (wasSeen && currentIndex().isValid())
        scrollTo(currentIndex());
}

void ColumnView::paintEvent(QPaintEvent* event) {
    QListView::paintEvent(event);
    if (accessibleDescription().isEmpty())
        return;
    QPainter painter(viewport());
    painter.setPen(palette().color(QPalette::PlaceholderText));
    const QRect place = viewport()->rect().adjusted(emptyTextMargin, emptyTextMargin, -emptyTextMargin, 0);
    painter.drawText(place, Qt::AlignTop | Qt::AlignHCenter | Qt::TextWordWrap, accessibleDescription());
}

void ColumnView::reportChoice() {
    if (!std::exchange(hasChoice_, false))
        return;
    model_->releaseDeselectedRows();
    emit chosen();
}

// `seen` lists rows and how many pixels below the upper edge they were.
void ColumnView::scrollBack(const std::vector<std::pair<QPersistentModelIndex, int>>& seen) {
    const auto anchor = std::ranges::find_if(seen, [](const auto& row) { return row.first.isValid(); });
    if (anchor == seen.end())
        return;
    updateGeometries();
    verticalScrollBar()->setValue(verticalScrollBar()->value() + visualRect(anchor->first).top() -
                                  anchor->second);
}

} // namespace kelvane
