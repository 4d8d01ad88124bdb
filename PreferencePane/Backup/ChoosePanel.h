#pragma once

#include <QFileDialog>
#include <string>
#include <vector>

namespace kelvane {

// A dialog for choosing any number of files and folders; links are resolved, except broken ones.
class ChoosePanel : public QFileDialog {
    Q_OBJECT
public:
    // `prompt` is the text of the confirm button.
    ChoosePanel(QWidget* window, const QString& message, const QString& prompt);

    // Absolute, normalised paths; at least one after the dialog was accepted.
    [[nodiscard]] std::vector<std::string> filenames() const;

protected:
    void accept() override;

private:
    void keepPrompt() const;
    void showChoice() const;
    [[nodiscard]] QStringList existingFiles() const;

    const QString prompt_;
};

} // namespace kelvane
