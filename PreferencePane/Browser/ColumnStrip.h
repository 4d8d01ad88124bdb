#pragma once

#include <QSplitter>
#include <vector>

namespace kelvane {

// Columns side by side. Each is as wide as a person has made the one in its place, whichever column that was;
// what is left over at the right stays empty.
class ColumnStrip : public QSplitter {
    Q_OBJECT
public:
    explicit ColumnStrip(QWidget* parent = nullptr);

    [[nodiscard]] int columnCount() const { return count() - 1; }
    void append(QWidget& column);
    // The last one; it becomes a hidden child of `newParent`.
    void removeLast(QWidget& newParent);

    [[nodiscard]] int columnWidth(int column) const;
    void setColumnWidth(int column, int width);
    // Of all columns together.
    [[nodiscard]] int neededWidth() const;

signals:
    void neededWidthChanged();

protected:
    [[nodiscard]] QSplitterHandle* createHandle() override;

private:
    class Edge;

    std::vector<int> widths_; // by place; places that nobody has touched yet are missing
};

} // namespace kelvane
