// kelvane-settings: the application that shows preference panes.

#include "Host/SettingsHost.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "Platform/FileDescriptor.h"
#include "Platform/SignalWatch.h"

#include <QApplication>
#include <QSocketNotifier>
#include <csignal>
#include <cstdlib>
#include <iostream>

namespace kelvane::host {
namespace {

bool hasDisplay() {
    for (const char* const variable : {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY", "DISPLAY"})
        if (const char* const value = std::getenv(variable); value != nullptr && *value != '\0')
            return true;
    return false;
}

int run(const Options& options, char* programName) {
    // Created before the toolkit starts its first thread.
    const SignalDescriptor signal({SIGTERM, SIGINT, SIGHUP});
    int count = 1;
    char* words[] = {programName, nullptr};
    QApplication application(count, words);
    QApplication::setApplicationName("kelvane-settings");
    QApplication::setDesktopFileName("com.kelvane.settings");
    QApplication::setQuitOnLastWindowClosed(false);
    applyAppearance(options.appearance);

    const std::string folder = QApplication::applicationDirPath().toStdString();
    SettingsHost host(options, std::make_shared<QtMainLoop>(),
                      findPanes(paneFolders(folder), options.pane, {options.daemon, options.log}));
    QSocketNotifier signalled(signal.get(), QSocketNotifier::Read);
    QObject::connect(&signalled, &QSocketNotifier::activated, &signalled, [&] {
        if (signal.take())
            host.end();
    });
    host.show();
    return QApplication::exec();
}

} // namespace
} // namespace kelvane::host

int main(int argc, char** argv) {
    kelvane::prepareProgram();
    const auto options = kelvane::host::readOptions(argc, argv);
    if (const int* const status = std::get_if<int>(&options))
        return *status;
    if (!kelvane::host::hasDisplay()) {
        std::cerr << "kelvane-settings: there is no display to show a window on (DISPLAY is not set)\n";
        return 1;
    }
    return kelvane::host::run(std::get<kelvane::host::Options>(options), argv[0]);
}
