// An empty window that ends once it is painted: the reference for the start of kelvane-settings.

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
