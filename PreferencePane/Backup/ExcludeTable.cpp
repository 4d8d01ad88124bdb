#include "PreferencePane/Backup/ExcludeTable.h"

#include "PreferencePane/Backup/ExcludeTableModel.h"
#include "PreferencePane/Backup/UriList.h"
#include "Support/Logging.h"

#include <QDragEnterEvent>
#include <QHeaderView>
#include <QMimeData>
#include <QPainter>
#include <QScrollBar>
#include <QSysInfo>
#include <algorithm>
#include <set>

namespace kelvane {
namespace {

constexpr const char* fileNames = "text/uri-list";
constexpr const char* filePromise = "XdndDirectSave0"; // the file's name is negotiated after the drop

constexpr int firstOwnerWidth = 160; // in logical pixels
constexpr int rowMargin = 6;
constexpr int dropFrameWidth = 2;

bool sameRow(const FileNodeRef& one, const FileNodeRef& other) {
    return one->path() == other->path() && one->fileName() == other->fileName() && one->uid() == other->uid();
}

} // namespace

ExcludeTable::ExcludeTable(QWidget* parent) : QTableView(parent) {
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);
    setSelectionBehavior(SelectRows);
    setSelectionMode(ExtendedSelection);
    setEditTriggers(NoEditTriggers);
    setTabKeyNavigation(false);
    setShowGrid(false);
    setTextElideMode(Qt::ElideMiddle);
    setWordWrap(false);
    verticalHeader()->hide();
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + rowMargin);
    horizontalHeader()->setHighlightSections(false);
}

void ExcludeTable::setServices(const PaneServices& prefs) {
    model_ = new ExcludeTableModel(prefs, this);
    setModel(model_);
    horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    horizontalHeader()->resizeSection(1, firstOwnerWidth);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ExcludeTable::tableViewSelectionDidChange);
}

void ExcludeTable::setNodes(FileNodeList nodes) {
    if (std::ranges::equal(nodes, model_->nodes(), sameRow))
        return;
    std::set<std::string> selected;
    for (const FileNodeRef& node : selectedNodes())
        selected.insert(node->path());
    const int place = verticalScrollBar()->value();
    model_->setNodes(std::move(nodes));
    QItemSelection selection;
    for (int row = 0; row < model_->rowCount(); ++row)
        if (selected.contains(model_->nodes()[static_cast<std::size_t>(row)]->path()))
            selection.select(model_->index(row, 0), model_->index(row, 1));
    selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    verticalScrollBar()->setValue(place);
}

FileNodeList ExcludeTable::selectedNodes() const {
    std::vector<int> rows;
    for (const QModelIndex& index : selectionModel()->selectedRows())
        rows.push_back(index.row());
    std::ranges::sort(rows);
    FileNodeList nodes;
    for (const int row : rows)
        nodes.push_back(model_->nodes()[static_cast<std::size_t>(row)]);
    return nodes;
}

void ExcludeTable::dragEnterEvent(QDragEnterEvent* event) {
    validateDrop(*event);
}

void ExcludeTable::dragMoveEvent(QDragMoveEvent* event) {
    validateDrop(*event);
}

void ExcludeTable::dragLeaveEvent(QDragLeaveEvent* event) {
    setDropTarget(false);
    event->accept();
}

void ExcludeTable::dropEvent(QDropEvent* event) {
    validateDrop(*event);
    setDropTarget(false);
    if (!event->isAccepted())
        return;
    const QByteArray list = event->mimeData()->data(fileNames);
    const UriList found = pathsOfUriList({list.data(), static_cast<std::size_t>(list.size())},
                                         QSysInfo::machineHostName().toStdString());
    for (const std::string& other : found.others)
        KelvaneCLog("Ignored a dropped item that is not a file on this machine: %@", other);
    emit dropped(found.paths);
}

void ExcludeTable::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Insert)
        emit insertPressed();
    else if (event->key() == Qt::Key_Delete)
        emit deletePressed();
    else
        QTableView::keyPressEvent(event);
}

void ExcludeTable::paintEvent(QPaintEvent* event) {
    QTableView::paintEvent(event);
    if (!isDropTarget_)
        return;
    QPainter painter(viewport());
    painter.setPen(QPen(palette().color(QPalette::Highlight), dropFrameWidth));
    painter.drawRect(viewport()->rect().adjusted(1, 1, -1, -1));
}

// A drop applies to the whole list wherever the pointer is. With the copy action the source keeps the files.
void ExcludeTable::validateDrop(QDropEvent& event) {
    const bool hasFiles = event.mimeData()->hasFormat(fileNames) || event.mimeData()->hasFormat(filePromise);
    const bool isTaken =
        hasFiles && event.possibleActions().testFlag(Qt::CopyAction) && acceptsDrop_ && acceptsDrop_();
    setDropTarget(isTaken);
    if (!isTaken)
        return event.ignore();
    event.setDropAction(Qt::CopyAction);
    event.accept();
}

void ExcludeTable::setDropTarget(bool isDropTarget) {
    if (std::exchange(isDropTarget_, isDropTarget) != isDropTarget)
        viewport()->update();
}

} // namespace kelvane
