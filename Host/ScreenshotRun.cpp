#include "Host/ScreenshotRun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPixmap>
#include <QWidget>
#include <algorithm>
#include <iostream>

namespace kelvane::host {
namespace {

constexpr std::chrono::seconds readyTimeout(10);
constexpr std::chrono::milliseconds checkInterval(50);

// Turns "Status" into "status.png".
QString fileName(const std::string& tab) {
    QString name = QString::fromStdString(tab).toLower();
    for (QChar& letter : name)
        if (!letter.isLetterOrNumber())
            letter = '-';
    return name + ".png";
}

} // namespace

ScreenshotRun::ScreenshotRun(QWidget& window, PaneLife& life, std::string folder, MainLoop& loop,
                             std::function<void(int status)> finished)
    : window_(window),
      life_(life),
      folder_(std::move(folder)),
      loop_(loop),
      finished_(std::move(finished)),
      deadline_(Clock::now() + readyTimeout) {
    timer_ = loop_.schedule(checkInterval, MainLoop::Repeat::Always, [this] { waitForPane(); });
}

void ScreenshotRun::waitForPane() {
    const Pane* const pane = life_.pane();
    const bool isLate = Clock::now() > deadline_;
    if (pane != nullptr && !pane->isReady() && !isLate)
        return;
    timer_.stop();
    if (pane != nullptr && !pane->isReady())
        std::cerr << "kelvane-settings: the pane is not ready, which the screenshots show\n";
    if (pane != nullptr)
        tabs_ = pane->tabNames();
    std::ranges::reverse(tabs_);
    if (tabs_.empty())
        take(life_.description().title);
    else
        showNext();
}

void ScreenshotRun::showNext() {
    if (tabs_.empty())
        return finished_(0);
    const std::string tab = tabs_.back();
    tabs_.pop_back();
    if (Pane* const pane = life_.pane(); pane != nullptr && !pane->selectTab(tab)) {
        std::cerr << "kelvane-settings: no screenshot of the tab \"" << tab
                  << "\": the pane no longer has it\n";
        return showNext();
    }
    painted_ = std::make_unique<AfterPaint>(window_, loop_, [this, tab] { take(tab); });
}

void ScreenshotRun::take(const std::string& name) {
    const QString path = QDir(QString::fromStdString(folder_)).filePath(fileName(name));
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !window_.grab().save(&file, "PNG") || !file.flush()) {
        std::cerr << "kelvane-settings: cannot write " << path.toStdString() << ": "
                  << file.errorString().toStdString() << '\n';
        return finished_(1);
    }
    std::cout << path.toStdString() << std::endl;
    // Scheduled, because `showNext` replaces `painted_`, whose task may be running this.
    timer_ = loop_.schedule(std::chrono::milliseconds(0), MainLoop::Repeat::Once, [this] { showNext(); });
}

} // namespace kelvane::host
