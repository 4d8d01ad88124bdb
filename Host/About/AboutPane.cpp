// The About pane, which shows what is installed: a small but complete pane.

#include "Platform/Desktop/ComputerName.h"
#include "Platform/Desktop/PanePlugin.h"

#include <QClipboard>
#include <QFormLayout>
#include <QGuiApplication>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QSysInfo>
#include <QVBoxLayout>
#include <vector>

namespace kelvane {
namespace {

constexpr int pictureSize = 96;
constexpr int gap = 8;
constexpr int sectionGap = 24;
constexpr double nameScale = 1.8;

struct Fact {
    QString name;
    QString text;
};

class AboutPane : public Pane {
public:
    explicit AboutPane(PaneBundle bundle) : bundle_(std::move(bundle)) {}

    void awakeFromNib() override;
    void mainViewDidLoad() override {}
    // Refreshes what may have changed.
    void didSelect() override { values_.front()->setText(facts().front().text); }
    void willUnselect() override {}
    [[nodiscard]] QWidget* mainView() override { return &view_; }

private:
    [[nodiscard]] QString text(std::string_view key, std::string_view fallback) const {
        return QString::fromStdString(bundle_->localizedString(key, fallback));
    }
    [[nodiscard]] std::vector<Fact> facts() const;
    QLabel* addCentred(QVBoxLayout& column, const QString& words);
    QWidget* factTable();
    void copyFacts() const;

    const PaneBundle bundle_;
    QWidget view_;
    std::vector<QLabel*> values_;
};

std::vector<Fact> AboutPane::facts() const {
    return {
        {text("Computer", "Computer"), QString::fromStdString(computerName())},
        {text("Version", "Version"),
         QString::fromStdString(bundle_->information("CFBundleShortVersionString").stringValue())},
        {text("System", "System"),
         QSysInfo::prettyProductName() + " (" + QSysInfo::currentCpuArchitecture() + ')'},
        {text("Toolkit", "Toolkit"), QString("Qt ") + qVersion()},
    };
}

void AboutPane::awakeFromNib() {
    auto* const column = new QVBoxLayout(&view_);
    column->setSpacing(gap);
    column->addStretch(2);
    QLabel* const picture = addCentred(*column, {});
    picture->setPixmap(QIcon(QString::fromStdString(bundle_->resourcePath("kelvane", "svg").value_or("")))
                           .pixmap(QSize(pictureSize, pictureSize), view_.devicePixelRatioF()));
    QLabel* const name = addCentred(*column, text("Product", "Kelvane"));
    QFont font = name->font();
    font.setPointSizeF(font.pointSizeF() * nameScale);
    font.setWeight(QFont::DemiBold);
    name->setFont(font);
    addCentred(*column, text("Purpose", "The control panel of your online backup."));
    column->addSpacing(sectionGap);
    column->addWidget(factTable(), 0, Qt::AlignHCenter);
    column->addSpacing(sectionGap);
    auto* const copy = new QPushButton(text("Copy Details", "&Copy Details"), &view_);
    QObject::connect(copy, &QPushButton::clicked, &view_, [this] { copyFacts(); });
    column->addWidget(copy, 0, Qt::AlignHCenter);
    column->addStretch(3);
}

QLabel* AboutPane::addCentred(QVBoxLayout& column, const QString& words) {
    auto* const label = new QLabel(words, &view_);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignHCenter);
    column.addWidget(label, 0, Qt::AlignHCenter);
    return label;
}

QWidget* AboutPane::factTable() {
    auto* const box = new QWidget(&view_);
    auto* const table = new QFormLayout(box);
    table->setContentsMargins(0, 0, 0, 0);
    table->setLabelAlignment(Qt::AlignRight);
    for (const Fact& fact : facts()) {
        auto* const value = new QLabel(fact.text, box);
        value->setTextFormat(Qt::PlainText);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
        value->setAccessibleDescription(fact.name);
        table->addRow(fact.name + ':', value);
        values_.push_back(value);
    }
    return box;
}

void AboutPane::copyFacts() const {
    QString lines;
    for (const Fact& fact : facts())
        lines += fact.name + ": " + fact.text + '\n';
    QGuiApplication::clipboard()->setText(lines);
}

} // namespace
} // namespace kelvane

const std::uint32_t kelvanePaneInterfaceVersion = kelvane::paneInterfaceVersion;

kelvane::Pane* kelvaneMakePane(kelvane::PaneHost&, const kelvane::PaneBundle& bundle) {
    return new kelvane::AboutPane(bundle);
}
