#pragma once

#include <QSplitter>
#include <vector>

namespace kelvane {

// Columns side by side. Each has the width that the user has set for its position, whichever column was there
// then; the space at the right stays empty.
class ColumnStrip : public QSplitter {
    Q_OBJECT
public:
    explicit ColumnStrip(QWidget* parent = nullptr);

    [[nodiscard]] int columnCount() const { return count() - 1; }
    void append(QWidget& column);
    // Removes the last column, which becomes a hidden child of `newParent`.
    void removeLast(QWidget& newParent);

    [[nodiscard]] int columnWidth(int column) const;
    void setColumnWidth(int column, int width);
    // The total width of all columns.
    [[nodiscard]] int neededWidth() const;

signals:
    void neededWidthChanged();

protected:
    [[nodiscard]] QSplitterHandle* createHandle() override;

private:
    class Edge;

    std::vector<int> widths_; // by position, up to the last one that was resized
};

} // namespace kelvane
