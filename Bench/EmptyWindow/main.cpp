// An empty window of the toolkit, which ends once it has been painted: what kelvane-settings is measured
// beside.

#include <QApplication>
#include <QTimer>
#include <QWidget>

namespace {

class EmptyWindow : public QWidget {
protected:
    void paintEvent(QPaintEvent* /*event*/) override { QTimer::singleShot(0, qApp, &QCoreApplication::quit); }
};

} // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    QApplication::setStyle("fusion");
    EmptyWindow window;
    window.resize(900, 600);
    window.show();
    return QApplication::exec();
}
