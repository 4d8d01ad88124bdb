#include "PreferencePane/Backup/ChoosePanel.h"

#include <QAbstractButton>
#include <QDialogButtonBox>
#include <QDir>
#include <QLineEdit>
#include <QListView>
#include <QSignalBlocker>
#include <filesystem>

namespace kelvane {

// The desktop's dialogs choose either files or folders, not both.
ChoosePanel::ChoosePanel(QWidget* window, const QString& message, const QString& prompt)
    : QFileDialog(window, message), prompt_(prompt) {
    setOption(DontUseNativeDialog);
    setOption(ReadOnly);
    setFileMode(ExistingFiles);
    setDirectory(QDir::homePath());
    setLabelText(Accept, prompt);
    connect(findChild<QListView*>("listView")->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ChoosePanel::keepPrompt);
    connect(findChild<QListView*>("listView")->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ChoosePanel::showChoice);
    connect(findChild<QLineEdit*>(), &QLineEdit::textChanged, this, &ChoosePanel::keepPrompt);
}

std::vector<std::string> ChoosePanel::filenames() const {
    std::vector<std::string> names;
    for (const QString& file : existingFiles()) {
        std::error_code error; // for a broken link, which is then chosen itself
        const std::string target = std::filesystem::canonical(file.toStdString(), error).string();
        names.push_back(error ? QDir::cleanPath(file).toStdString() : target);
    }
    return names;
}

// The base class would open a selected folder instead of choosing it.
void ChoosePanel::accept() {
    if (existingFiles().empty())
        QFileDialog::accept();
    else
        done(Accepted);
}

// Qt renames the button to "Open" when a folder is selected.
void ChoosePanel::keepPrompt() const {
    for (QAbstractButton* const button : findChild<QDialogButtonBox*>()->buttons())
        if (findChild<QDialogButtonBox*>()->buttonRole(button) == QDialogButtonBox::AcceptRole)
            button->setText(prompt_);
}

// Shows the names of the selection in the text field: Qt leaves out folders and keeps the name of a
// deselected file. Does nothing while the user types, because then the selection follows the field.
void ChoosePanel::showChoice() const {
    auto* const field = findChild<QLineEdit*>();
    if (field->hasFocus())
        return;
    QStringList names;
    for (const QModelIndex& row : findChild<QListView*>("listView")->selectionModel()->selectedRows())
        names.push_back(row.data().toString());
    const QSignalBlocker quiet(field); // otherwise the selection would follow the field
    field->setText(names.size() > 1 ? '"' + names.join("\" \"") + '"' : names.join(QString()));
}

QStringList ChoosePanel::existingFiles() const {
    QStringList files = selectedFiles();
    files.removeIf([](const QString& file) {
        const QFileInfo info(file);
        return !info.exists() && !info.isSymLink();
    });
    return files;
}

} // namespace kelvane
