#include "PreferencePane/Info/InfoWindowController.h"

#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Platform/Desktop/ComputerName.h"
#include "Platform/PropertyListFile.h"
#include "PreferencePane/Info/LocationItems.h"
#include "PreferencePane/Info/ui_InfoWindow.h"
#include "PreferencePane/Services/FormTexts.h"
#include "PreferencePane/Services/OneLineLabel.h"
#include "Support/FileSizeFormatter.h"

#include <QShortcut>

namespace kelvane {
namespace {

// The computer's name from its settings, otherwise from the system.
std::string shownComputerName(const PaneServices& prefs) {
    const std::string settings =
        prefs.text("ConfigPlistPath", "/Library/Preferences/SystemConfiguration/preferences.plist");
    std::string name = readPropertyListFile(settings).value["System"]["System"]["ComputerName"].stringValue();
    if (name.empty())
        name = computerName();
    return name.empty() ? prefs.text("ComputerNameKey", "Computer") : name;
}

IconHandle iconOf(const LocationItem& item, const PaneServices& prefs) {
    switch (item.kind) {
    case LocationItem::Kind::Computer: return prefs.icons().computer();
    case LocationItem::Kind::Folder:
        // A folder that exists only in the backup gets the icon of any folder.
        return prefs.fileServices().fileSystem().isDirectory(item.folder)
                   ? prefs.fileServices().iconOfFile(item.folder)
                   : prefs.fileServices().iconOfFolder();
    case LocationItem::Kind::Unknown: break;
    }
    return nullptr;
}

struct InfoTexts {
    std::string title;
    std::string name;
    std::string kind;
    std::string shortSize;
    std::string longSize;
    std::string backupDate;
    std::string version;
};

InfoTexts infoTexts(const KelvaneFileNode& node, const PaneServices& prefs) {
    const auto size = [&node](const FileSizeFormatter& formatter) {
        return formatter.stringFromNumber(node.size()).value_or(std::string());
    };
    const std::optional<Date> date = node.backupDate();
    const Value& version = node.version();
    return {.title = formatTranslated(prefs.text("%@ Info"), node.displayName()),
            .name = node.displayName(),
            .kind = node.kindByPath(prefs.fileServices()),
            .shortSize = size(FileSizeFormatter::sharedFileSizeAbbrevFormatter()),
            .longSize = size(FileSizeFormatter::sharedFileSizeFormatter()),
            .backupDate = date ? prefs.fileServices().dateAndTime(*date) : std::string(),
            .version = version.isAbsent() ? std::string() : version.description()};
}

} // namespace

KelvaneInfoWindowController::KelvaneInfoWindowController(const PaneServices& prefs, FileNodeRef fileNode)
    : prefs_(prefs),
      fileNode_(std::move(fileNode)),
      window_(new QDialog(prefs.mainView())),
      ui_(std::make_unique<Ui::InfoWindow>()) {
    ui_->setupUi(window_);
    localizeForm(*window_, *prefs_.bundle());
    QFont nameFont = ui_->nameField->font();
    nameFont.setBold(true);
    ui_->nameField->setFont(nameFont);
    QObject::connect(ui_->whereField, &QComboBox::activated, window_, [this] { whereFieldAction(); });
    QObject::connect(window_, &QDialog::finished, window_, [this] {
        if (windowWillClose_)
            windowWillClose_();
    });
    const auto* const closing = new QShortcut(QKeySequence::Close, window_);
    QObject::connect(closing, &QShortcut::activated, window_, &QDialog::reject);
    updateUI();
}

KelvaneInfoWindowController::~KelvaneInfoWindowController() {
    delete window_;
}

void KelvaneInfoWindowController::awakeFromNib() {
    if (fileNode_)
        show();
}

void KelvaneInfoWindowController::setFileNode(const FileNodeRef& fileNode) {
    fileNode_ = fileNode;
    updateUI();
    show();
}

void KelvaneInfoWindowController::show() {
    window_->setWindowState(window_->windowState() & ~Qt::WindowMinimized);
    window_->show();
    window_->raise();
    window_->activateWindow();
}

void KelvaneInfoWindowController::closeInfoWindows() {
    window_->close();
}

void KelvaneInfoWindowController::updateUI() {
    ui_->iconView->setIcon(fileNode_ ? qIcon(fileNode_->image(prefs_.fileServices())) : QIcon());
    updateTexts();
    updateLocation();
}

void KelvaneInfoWindowController::updateTexts() {
    const InfoTexts texts = fileNode_ ? infoTexts(*fileNode_, prefs_) : InfoTexts();
    // A lone "[*]" is Qt's placeholder for a changed document.
    window_->setWindowTitle(oneLine(texts.title).replace("[*]", "[*][*]"));
    ui_->nameField->setText(QString::fromStdString(texts.name));
    ui_->kindField->setText(QString::fromStdString(texts.kind));
    ui_->shortSizeField->setText(QString::fromStdString(texts.shortSize));
    ui_->longSizeField->setText(QString::fromStdString(texts.longSize));
    ui_->backupDateField->setText(QString::fromStdString(texts.backupDate));
    ui_->versionField->setText(QString::fromStdString(texts.version));
}

void KelvaneInfoWindowController::updateLocation() {
    QComboBox& field = *ui_->whereField;
    field.hidePopup(); // an open list would change under the pointer
    field.clear();
    const std::string path = fileNode_ ? fileNode_->path() : std::string();
    field.setToolTip(plainToolTip(QString::fromStdString(deleteLastPathComponent(path))));
    if (!fileNode_)
        return;
    for (const LocationItem& item : locationItems(path, shownComputerName(prefs_)))
        field.addItem(qIcon(iconOf(item, prefs_)), oneLine(item.title));
}

// The pop-up only shows the location: any choice returns to the innermost folder.
void KelvaneInfoWindowController::whereFieldAction() {
    ui_->whereField->setCurrentIndex(0);
}

} // namespace kelvane
