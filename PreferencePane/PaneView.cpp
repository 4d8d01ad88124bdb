#include "PreferencePane/PaneView.h"

#include <QLabel>
#include <QStackedLayout>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>
#include <algorithm>

namespace kelvane {
namespace {

struct TabTitle {
    PaneTab tab;
    std::string_view title; // key and English text
};
constexpr TabTitle tabTitles[] = {
    {PaneTab::Status, "Status"}, {PaneTab::Backup, "Backup"},   {PaneTab::Restore, "Restore"},
    {PaneTab::Help, "Help"},     {PaneTab::Message, "Message"},
};

} // namespace

PaneView::PaneView(const Bundle& bundle)
    : marketNameText_(new QLabel(this)),
      tabView_(new QTabWidget),
      messageText_(new QLabel),
      progressPlace_(new QWidget),
      tabArea_(new QStackedLayout),
      authView_(new AuthorizationView(bundle, this)) {
    // The sheets take their title from this widget.
    setWindowTitle(QString::fromStdString(bundle.information("CFBundleName").stringValue()));
    for (const auto& [tab, title] : tabTitles) {
        TabItem& made = item(tab);
        made.title = QString::fromStdString(bundle.localizedString(title, title));
        made.page = new QWidget(this);
        made.page->hide();
        (new QVBoxLayout(made.page))->setContentsMargins(0, 0, 0, 0);
    }
    QFont nameFont = marketNameText_->font();
    nameFont.setBold(true);
    marketNameText_->setFont(nameFont);
    marketNameText_->setTextFormat(Qt::PlainText);
    marketNameText_->setAccessibleDescription(
        QString::fromStdString(bundle.localizedString("Name of the service", "Name of the service")));
    marketNameText_->hide();

    messageText_->setWordWrap(true);
    messageText_->setTextFormat(Qt::PlainText);
    messageText_->setAlignment(Qt::AlignTop);
    messageText_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    messageText_->setMargin(20);
    messageText_->setAccessibleDescription(
        QString::fromStdString(bundle.localizedString("What has happened", "What has happened")));
    fill(PaneTab::Message, messageText_);

    (new QVBoxLayout(progressPlace_))->setContentsMargins(0, 0, 0, 0);
    tabArea_->addWidget(tabView_);
    tabArea_->addWidget(progressPlace_);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(marketNameText_);
    layout->addLayout(tabArea_, 1);
    layout->addWidget(authView_);
}

void PaneView::fill(PaneTab tab, QWidget* content) {
    TabItem& filled = item(tab);
    filled.isFilled = true;
    if (content)
        filled.page->layout()->addWidget(content);
    show(tab, true);
}

void PaneView::show(PaneTab tab, bool isShown) {
    TabItem& changed = item(tab);
    if (!changed.isFilled || changed.isShown == isShown)
        return;
    changed.isShown = isShown;
    if (isShown) {
        const bool goesLast = tab == PaneTab::Help || !item(PaneTab::Help).isShown;
        tabView_->insertTab(goesLast ? tabView_->count() : tabView_->indexOf(page(PaneTab::Help)),
                            changed.page, QString(changed.title).replace('&', "&&"));
        return;
    }
    tabView_->removeTab(tabView_->indexOf(changed.page));
    changed.page->setParent(this); // otherwise it would be deleted with the tab area
    changed.page->hide();
}

std::vector<std::string> PaneView::tabNames() const {
    std::vector<std::string> names;
    for (int index = 0; index < tabView_->count(); ++index)
        names.push_back(tabView_->tabText(index).replace("&&", "&").toStdString());
    return names;
}

bool PaneView::selectTab(const std::string& name) {
    const auto isMeant = [&](const TabItem& item) {
        return item.isShown && item.title.compare(QString::fromStdString(name), Qt::CaseInsensitive) == 0;
    };
    const auto found = std::ranges::find_if(items_, isMeant);
    if (found == items_.end())
        return false;
    tabView_->setCurrentWidget(found->page);
    return true;
}

void PaneView::selectTab(PaneTab tab) {
    tabView_->setCurrentWidget(page(tab));
}

void PaneView::selectFirstTab() {
    tabView_->setCurrentIndex(0);
}

void PaneView::setMessage(const std::string& message) {
    messageText_->setText(QString::fromStdString(message).replace('\r', '\n'));
}

std::string PaneView::marketName() const {
    return marketNameText_->text().toStdString();
}

void PaneView::setMarketName(const std::string& name) {
    marketNameText_->setText(QString::fromStdString(name));
    marketNameText_->setVisible(!name.empty());
}

void PaneView::setRestoreProgressView(QWidget* view) {
    static_cast<QVBoxLayout*>(progressPlace_->layout())->addWidget(view, 0, Qt::AlignTop | Qt::AlignLeft);
}

void PaneView::showRestoreProgress(bool isShown) {
    const bool holdsFocus = progressPlace_->isAncestorOf(window()->focusWidget());
    tabArea_->setCurrentWidget(isShown ? progressPlace_ : static_cast<QWidget*>(tabView_));
    if (isShown && progressPlace_->layout()->count() > 0)
        progressPlace_->layout()->itemAt(0)->widget()->setFocus(Qt::OtherFocusReason);
    else if (!isShown && holdsFocus)
        tabView_->tabBar()->setFocus(Qt::OtherFocusReason);
}

} // namespace kelvane
