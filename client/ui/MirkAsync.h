// Fire-and-forget work off the GUI thread: ASYNC runs work on a fresh thread
// and then done on the thread of a context object (normally the GUI thread).
#pragma once

#include <QThread>

#include <functional>

class QObject;

namespace mirk_async {

// A thread that runs one function once.
class MyThread : public QThread {
    Q_OBJECT

public:
    explicit MyThread(std::function<void()> work);

protected:
    void run() override;

private:
    std::function<void()> m_work;
};

// Runs work on a new MyThread; when it has finished, done runs on context's
// thread (queued when that is another thread) after the thread object was
// scheduled for deletion. If the thread object cannot be allocated neither
// half runs. If context is destroyed before work ends, done never runs and the
// thread object is left alone.
void ASYNC(std::function<void()> work, std::function<void()> done, QObject* context);

}  // namespace mirk_async
