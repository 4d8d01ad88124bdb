#pragma once

#include "Foundation/Value.h"
#include "PreferencePane/Help/ReportSending.h"
#include "PreferencePane/Services/PaneServices.h"
#include "PreferencePane/Services/TabControllers.h"

#include <QObject>
#include <QPointer>
#include <array>
#include <memory>
#include <optional>
#include <string>

class QDialog;

namespace Ui {
class EmailWindow;
class HelpTab;
class HelpWindow;
} // namespace Ui

namespace kelvane {

// The Help tab: a sheet that offers the online help, the daemon's log and a report, and the sheet in which a
// report is written and sent to the support with the zipped log.
//
// Main thread only. The pane outlives it. It owns its view, which owns the sheets, until the tab adopts it;
// the view must exist during every call. Sending runs a nested event loop, during which this object must not
// be deleted.
class KelvaneHelpController final : public HelpTab {
public:
    explicit KelvaneHelpController(PaneServices& prefs, ReportTools tools = {});
    ~KelvaneHelpController() override;
    KelvaneHelpController(const KelvaneHelpController&) = delete;
    KelvaneHelpController& operator=(const KelvaneHelpController&) = delete;

    [[nodiscard]] QWidget* view() override { return view_; }
    void awakeFromNib() override;

    // The file's contents in gzip format; none when the file is empty or cannot be read or written.
    [[nodiscard]] static std::optional<Data> compressFile(const std::string& path);

private:
    void connectControls();
    void localizeForms();

    void readyChangedNotification();
    void showHelpSheetAction();
    void closeHelpSheetAction();
    void viewOnlineHelpAction();
    void showLogAction();

    void showEmailSheetAction();
    void showChatMessage(const std::string& server);
    void messageEditedNotification(int changeInLength);
    void emailCategoryAction(int index);
    void cancelEmailAction();
    void sendEmailAction();
    void offerAgain(const std::string& failure);
    [[nodiscard]] IncidentReport incidentReport() const;

    [[nodiscard]] std::string logPath() const;
    [[nodiscard]] std::string information(std::string_view key) const {
        return prefs_.bundle()->information(key).stringValue();
    }

    PaneServices& prefs_;
    const ReportTools tools_;
    const std::unique_ptr<Ui::HelpTab> tab_;
    const std::unique_ptr<Ui::HelpWindow> help_;
    const std::unique_ptr<Ui::EmailWindow> email_;
    const QPointer<QWidget> view_;
    QDialog* const helpWindow_;
    QDialog* const emailWindow_;
    std::string chatLink_;
    std::array<NotificationCenter::Observer, 2> observers_;
    QObject context_; // its destruction disconnects the controls
};

} // namespace kelvane
