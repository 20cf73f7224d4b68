#include "ui/MirkAsync.h"

#include <QObject>

#include <new>
#include <utility>

namespace mirk_async {

MyThread::MyThread(std::function<void()> work) : QThread(nullptr), m_work(std::move(work)) {}

void MyThread::run() {
    if (m_work) m_work();
}

void ASYNC(std::function<void()> work, std::function<void()> done, QObject* context) {
    auto* thread = new (std::nothrow) MyThread(std::move(work));
    if (thread == nullptr) return;
    QObject::connect(thread, &QThread::finished, context, [thread, done = std::move(done)]() {
        thread->deleteLater();
        if (done) done();
    });
    thread->start();
}

}  // namespace mirk_async
