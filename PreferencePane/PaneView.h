#pragma once

#include "Platform/Bundle.h"
#include "PreferencePane/AuthorizationView.h"

#include <QWidget>
#include <array>
#include <memory>
#include <string>
#include <vector>

class QLabel;
class QStackedLayout;
class QTabWidget;

namespace kelvane {

enum class PaneTab : std::size_t { Status, Backup, Restore, Help, Message };
inline constexpr std::size_t paneTabCount = 5;

// The pane's whole view: the market's name, the tab area or the restore progress in its place, and the lock.
// Does not know what the tabs do.
class PaneView : public QWidget {
    Q_OBJECT

public:
    // Reads the tab titles from the bundle.
    explicit PaneView(const Bundle& bundle);

    // Adds the content to a page and shows its tab; without `content`, the caller fills `page` itself. A page
    // that was never filled stays out of the tab area.
    void fill(PaneTab tab, QWidget* content = nullptr);
    // Inserts the page's tab as the last before Help, which is always visible, or removes it. Does nothing
    // for a page that was never filled or when nothing changes.
    void show(PaneTab tab, bool isShown);
    [[nodiscard]] bool isShown(PaneTab tab) const { return item(tab).isShown; }
    [[nodiscard]] QWidget* page(PaneTab tab) const { return item(tab).page; }
    [[nodiscard]] std::vector<std::string> tabNames() const;
    [[nodiscard]] bool selectTab(const std::string& name);
    void selectFirstTab();
    void selectTab(PaneTab tab);

    void setMessage(const std::string& message);
    [[nodiscard]] std::string marketName() const;
    void setMarketName(const std::string& name);

    // Placed in the tab area's top left corner, in its own size.
    void setRestoreProgressView(QWidget* view);
    void showRestoreProgress(bool isShown);

    [[nodiscard]] AuthorizationView& authView() { return *authView_; }

private:
    struct TabItem {
        QWidget* page = nullptr;
        QString title;
        bool isFilled = false;
        bool isShown = false;
    };
    [[nodiscard]] const TabItem& item(PaneTab tab) const { return items_[static_cast<std::size_t>(tab)]; }
    [[nodiscard]] TabItem& item(PaneTab tab) { return items_[static_cast<std::size_t>(tab)]; }

    std::array<TabItem, paneTabCount> items_;
    QLabel* const marketNameText_;
    QTabWidget* const tabView_;
    QLabel* const messageText_;
    QWidget* const progressPlace_;
    QStackedLayout* const tabArea_;
    AuthorizationView* const authView_;
};

} // namespace kelvane
