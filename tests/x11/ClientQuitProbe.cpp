// Linked into a copy of the client's main(): once the event loop runs and the
// main window is shown, the program ends by QCoreApplication::quit(), as a
// quit from anywhere in the program would.
#include <QApplication>
#include <QCoreApplication>
#include <QThread>
#include <QTimer>
#include <QWidget>

namespace {

void quitOnceTheWindowShows() {
    auto* timer = new QTimer(QCoreApplication::instance());
    QObject::connect(timer, &QTimer::timeout, [] {
        if (QThread::currentThread()->loopLevel() == 0) return;  // not yet inside exec()
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (widget->isVisible() && widget->inherits("qorquicomponents::OrvixUpgrade")) {
                QCoreApplication::quit();
                return;
            }
        }
    });
    timer->start(100);
}

}  // namespace

Q_COREAPP_STARTUP_FUNCTION(quitOnceTheWindowShows)
