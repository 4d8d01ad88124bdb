#include "Common/FileNode/FileNode.h"
#include "Common/FileNode/FileNodeWalk.h"

#include <algorithm>
#include <compare>
#include <unordered_map>

namespace kelvane {

class KelvaneFileNode::Sorting {
public:
    Sorting(const KelvaneFileNode& top, std::span<const SortDescriptor> descriptors)
        : descriptors_(descriptors) {
        if (std::ranges::any_of(descriptors, [](const SortDescriptor& each) {
                return each.key == SortDescriptor::Key::Size;
            }))
            addUpSizes(top);
    }

    void sort(FileNodeList& list) const {
        std::ranges::stable_sort(list, [this](const FileNodeRef& left, const FileNodeRef& right) {
            return isBefore(*left, *right);
        });
    }

private:
    // Computes the sizes of the whole tree once, each folder after its contents.
    void addUpSizes(const KelvaneFileNode& top) {
        std::vector<const KelvaneFileNode*> folders;
        forEachBelow(top, [&folders](const FileNodeRef& node) {
            if (node->children_)
                folders.push_back(node.get());
            return true;
        });
        for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
            std::uint64_t sum = (*folder)->size_;
            for (const FileNodeRef& child : *(*folder)->children_)
                sum += sizeOf(*child);
            folderSizes_[*folder] = sum;
        }
    }

    [[nodiscard]] std::uint64_t sizeOf(const KelvaneFileNode& node) const {
        return node.children_ ? folderSizes_.at(&node) : node.size_;
    }

    [[nodiscard]] bool isBefore(const KelvaneFileNode& left, const KelvaneFileNode& right) const {
        for (const SortDescriptor& descriptor : descriptors_) {
            const std::weak_ordering order = compare(descriptor.key, left, right);
            if (std::is_neq(order))
                return descriptor.ascending ? std::is_lt(order) : std::is_gt(order);
        }
        return false;
    }

    [[nodiscard]] std::weak_ordering compare(SortDescriptor::Key key, const KelvaneFileNode& left,
                                             const KelvaneFileNode& right) const {
        using Key = SortDescriptor::Key;
        switch (key) {
        case Key::FileName: return left.fileName_.text() <=> right.fileName_.text();
        case Key::DisplayName: return left.shownName() <=> right.shownName();
        case Key::IsDirectory: return left.isDirectory_ <=> right.isDirectory_;
        case Key::BackupDate: return compareReals(secondsOf(left.backupDate_), secondsOf(right.backupDate_));
        case Key::Version: return compareReals(numberOf(left.version_), numberOf(right.version_));
        case Key::State: return left.state_.text() <=> right.state_.text();
        case Key::Size: return sizeOf(left) <=> sizeOf(right);
        case Key::TotalCount: return left.totalCount_ <=> right.totalCount_;
        case Key::BackupColor: return left.backupColor() <=> right.backupColor();
        }
        return std::weak_ordering::equivalent;
    }

    [[nodiscard]] static std::optional<double> secondsOf(std::optional<Date> date) {
        return date ? std::optional(date->secondsSinceReference) : std::nullopt;
    }
    [[nodiscard]] static std::optional<double> numberOf(const Value& number) {
        return number.isAbsent() ? std::nullopt : std::optional(number.doubleValue());
    }
    // Compares by the total order of reals, which includes NaN.
    [[nodiscard]] static std::weak_ordering compareReals(std::optional<double> left,
                                                         std::optional<double> right) {
        if (!left || !right)
            return left.has_value() <=> right.has_value();
        return *left == *right ? std::weak_ordering::equivalent : std::strong_order(*left, *right);
    }

    std::span<const SortDescriptor> descriptors_;
    std::unordered_map<const KelvaneFileNode*, std::uint64_t> folderSizes_;
};

void KelvaneFileNode::sortUsingDescriptors(std::span<const SortDescriptor> descriptors) {
    const Sorting sorting(*this, descriptors);
    if (children_)
        sorting.sort(*children_);
    forEachBelow(*this, [&sorting](const FileNodeRef& node) {
        if (node->children_)
            sorting.sort(*node->children_);
        return true;
    });
}

} // namespace kelvane
