#include "IoThread.h"

#include <QCoreApplication>

#include "casting/Log.h"

namespace zv {

IoThread::IoThread() : m_thread(std::make_unique<QThread>()), m_context(new QObject) {
    if (QCoreApplication::instance() == nullptr) {
        ZV_LOG(ERROR) << " no QCoreApplication in this process: the library's network thread cannot run";
    }
    m_thread->setObjectName(QStringLiteral("zv-io"));
    m_context->moveToThread(m_thread.get());
    // The context and everything parented to it are deleted on the thread itself.
    QObject::connect(m_thread.get(), &QThread::finished, m_context, &QObject::deleteLater, Qt::DirectConnection);
    m_thread->start();
}

IoThread::~IoThread() {
    m_thread->quit();
    m_thread->wait();
}

}  // namespace zv
