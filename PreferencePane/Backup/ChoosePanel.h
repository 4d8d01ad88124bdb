#pragma once

#include <QFileDialog>
#include <string>
#include <vector>

namespace kelvane {

// A panel in which a person chooses files and folders, several at once and of both kinds; links stand for
// what they lead to.
class ChoosePanel : public QFileDialog {
    Q_OBJECT
public:
    // `prompt` is on the button that ends it.
    ChoosePanel(QWidget* window, const QString& message, const QString& prompt);

    // Absolute and clean, at least one once it has been accepted.
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
