// The library's own thread with a Qt event loop: the session's sockets and
// timers live here, so the library never depends on the caller's loop.
// The process must have a QCoreApplication (the client's QApplication, or the
// one created by the command-line tool and the tests); it need not run.
#pragma once

#include <QObject>
#include <QThread>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <type_traits>

namespace zv {

class IoThread {
public:
    IoThread();
    ~IoThread();  // quits the loop and joins; objects parented to context() die on the thread
    IoThread(const IoThread&) = delete;
    IoThread& operator=(const IoThread&) = delete;

    // An object living on the thread; parent the thread's objects to it.
    QObject* context() const { return m_context; }
    bool isCurrent() const { return QThread::currentThread() == m_thread.get(); }

    // Runs fn on the thread, later.
    template <typename Fn>
    void post(Fn&& fn) const {
        QMetaObject::invokeMethod(m_context, std::forward<Fn>(fn), Qt::QueuedConnection);
    }

    // Runs fn on the thread and waits for its result, at most timeout. Called
    // on the thread itself it runs fn at once. Empty on time-out.
    template <typename Fn, typename R = std::invoke_result_t<Fn>>
    std::optional<R> call(Fn fn, std::chrono::milliseconds timeout) const {
        if (isCurrent()) return fn();
        auto promise = std::make_shared<std::promise<R>>();
        std::future<R> result = promise->get_future();
        post([promise, fn = std::move(fn)]() mutable { promise->set_value(fn()); });
        if (result.wait_for(timeout) != std::future_status::ready) return std::nullopt;
        return result.get();
    }

private:
    std::unique_ptr<QThread> m_thread;
    QObject* m_context = nullptr;
};

}  // namespace zv
