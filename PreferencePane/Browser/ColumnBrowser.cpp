#include "PreferencePane/Browser/ColumnBrowser.h"

#include "Platform/Desktop/Icons.h"
#include "PreferencePane/Browser/ColumnStrip.h"
#include "PreferencePane/Browser/ColumnView.h"

#include <QPointer>
#include <algorithm>

namespace kelvane {
namespace {

const ColumnModel& columnOf(const BrowserRow& row) {
    return static_cast<const ColumnModel&>(*row.model());
}

} // namespace

ColumnBrowser::ColumnBrowser(QWidget* parent) : QScrollArea(parent), strip_(new ColumnStrip) {
    strip_->setBackgroundRole(QPalette::Base);
    setWidget(strip_);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    connect(strip_, &ColumnStrip::neededWidthChanged, this, &ColumnBrowser::layOut);
    append({});
    setActive(*view(0));
}

void ColumnBrowser::setTitle(const QString& title) {
    setAccessibleName(title);
    view(0)->setAccessibleName(title);
}

void ColumnBrowser::setEmptyText(const QString& text) {
    view(0)->setEmptyText(text);
}

void ColumnBrowser::reloadColumn(int column) {
    const auto delegate = delegate_.lock();
    const QPointer<ColumnView> filled = view(column);
    if (!delegate || !filled)
        return;
    const int fill = ++at(column).fillsBegun;
    std::optional<BrowserRows> rows = delegate->createRowsForColumn(*this, column);
    // The delegate may have changed anything, so everything is checked again.
    if (!rows || !filled || numberOf(filled) < 0 || at(column).fillShown > fill)
        return;
    at(column).fillShown = fill;
    filled->setRows(std::move(*rows));
    if (has(column + 1) && !filled->isSelected(at(column + 1).folder))
        closeAfter(column);
}

int ColumnBrowser::rowCount(int column) const {
    return has(column) ? view(column)->rows().count() : 0;
}

const KelvaneBrowserCell* ColumnBrowser::cell(int column, int row) const {
    return row >= 0 && row < rowCount(column) ? &view(column)->rows().cell(row) : nullptr;
}

const KelvaneBrowserCell* ColumnBrowser::cell(const BrowserRow& row) const {
    return row.isValid() ? &columnOf(row).cell(row.row()) : nullptr;
}

BrowserRow ColumnBrowser::rowAt(int column, int row) const {
    return has(column) ? BrowserRow(view(column)->rows().index(row)) : BrowserRow();
}

void ColumnBrowser::setCell(const BrowserRow& row, const KelvaneBrowserCell& cell) {
    for (const Column& column : columns_)
        if (row.isValid() && row.model() == &column.view->rows())
            column.view->setCell(row.row(), cell);
}

const KelvaneBrowserCell* ColumnBrowser::selectedCell(int column) const {
    const std::vector<int> selected = has(column) ? view(column)->selectedRows() : std::vector<int>();
    return selected.empty() ? nullptr : cell(column, selected.front());
}

std::vector<std::string> ColumnBrowser::selectedFilePaths() const {
    std::vector<std::string> paths;
    for (int column = lastColumn(); column >= 0 && paths.empty(); --column)
        for (const int row : view(column)->selectedRows())
            paths.push_back(cell(column, row)->getFilePath());
    return paths;
}

int ColumnBrowser::columnWidth(int column) const {
    return strip_->columnWidth(column);
}

void ColumnBrowser::setColumnWidth(int column, int width) {
    strip_->setColumnWidth(column, width);
}

QListView* ColumnBrowser::columnView(int column) const {
    return view(column);
}

void ColumnBrowser::resizeEvent(QResizeEvent* event) {
    QScrollArea::resizeEvent(event);
    layOut();
}

ColumnView* ColumnBrowser::view(int column) const {
    return has(column) ? columns_[static_cast<std::size_t>(column)].view : nullptr;
}

int ColumnBrowser::numberOf(const ColumnView* column) const {
    const auto found = std::ranges::find(columns_, column, &Column::view);
    return found == columns_.end() ? -1 : static_cast<int>(found - columns_.begin());
}

void ColumnBrowser::append(const QModelIndex& folder) {
    auto* const column = new ColumnView(
        [this](const KelvaneBrowserCell& cell) {
            const auto delegate = delegate_.lock();
            return delegate ? qIcon(delegate->imageForCell(cell)) : QIcon();
        },
        this);
    column->setAccessibleName(folder.data().toString());
    column->setFocusPolicy(Qt::ClickFocus);
    connect(column, &ColumnView::chosen, this, [this, column] { choose(*column); });
    connect(column, &ColumnView::leftPressed, this, [this, column] { goLeft(*column); });
    connect(column, &ColumnView::rightPressed, this, [this, column] { goRight(*column); });
    connect(column, &ColumnView::focused, this, [this, column](bool byMouse) {
        setActive(*column);
        if (!byMouse)
            reveal(numberOf(column));
    });
    columns_.push_back({column, folder});
    strip_->append(*column);
}

// A view may be handling an event, so it is deleted later.
void ColumnBrowser::closeAfter(int column) {
    while (lastColumn() > column) {
        ColumnView* const closed = columns_.back().view;
        columns_.pop_back();
        closed->disconnect(this);
        if (window()->focusWidget() == closed)
            view(column)->setFocus(Qt::OtherFocusReason);
        if (focusProxy() == closed)
            setActive(*view(column));
        strip_->removeLast(*this);
        closed->deleteLater();
    }
}

void ColumnBrowser::layOut() {
    strip_->resize(std::max(viewport()->width(), strip_->neededWidth()), viewport()->height());
    strip_->refresh();
}

void ColumnBrowser::reveal(int column) {
    if (has(column))
        ensureWidgetVisible(view(column), 0, 0);
}

// Tab moves into the active column and out of the browser; the arrow keys move between columns.
void ColumnBrowser::setActive(ColumnView& column) {
    for (const Column& other : columns_)
        other.view->setFocusPolicy(other.view == &column ? Qt::StrongFocus : Qt::ClickFocus);
    setFocusProxy(&column);
}

void ColumnBrowser::choose(ColumnView& column) {
    const QPointer<ColumnBrowser> self = this;
    followChoice(numberOf(&column));
    if (self)
        emit chosen();
}

// This object may be destroyed by the last call.
void ColumnBrowser::followChoice(int column) {
    const QModelIndex folder = view(column)->selectedFolder();
    const int next = column + 1;
    const bool isOpen = folder.isValid() && has(next) && at(next).folder == folder;
    closeAfter(isOpen ? next : column);
    if (isOpen)
        view(next)->deselect();
    else if (folder.isValid())
        append(folder);
    reveal(next);
    reveal(column);
    reloadColumn(next);
}

// Moves to the folder that contains the selection.
void ColumnBrowser::goLeft(ColumnView& column) {
    const int number = numberOf(&column);
    if (number == 0)
        return;
    const bool isChoice = !column.selectedRows().empty();
    column.deselect();
    closeAfter(number);
    view(number - 1)->setFocus(Qt::OtherFocusReason);
    if (isChoice)
        emit chosen();
}

// Moves into the selected folder.
void ColumnBrowser::goRight(ColumnView& column) {
    const int next = numberOf(&column) + 1;
    if (!column.selectedFolder().isValid())
        return;
    const QPointer<ColumnBrowser> self = this;
    if (!has(next))
        followChoice(next - 1);
    if (!self || !has(next) || !view(next)->startRow().isValid())
        return;
    ColumnView& entered = *view(next);
    const bool isChoice = entered.selectedRows().empty();
    if (isChoice)
        entered.select(entered.startRow());
    entered.setFocus(Qt::OtherFocusReason);
    if (isChoice)
        choose(entered);
}

} // namespace kelvane
