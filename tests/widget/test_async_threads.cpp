// mirk_async::ASYNC: where its two halves run, that it cleans up after
// itself, and what happens when its context goes away or its thread cannot
// be allocated.
#include <QtTest/QtTest>

#include <QThread>

#include <atomic>
#include <new>

#include "ui/MirkAsync.h"

namespace {
// While set, every non-throwing allocation in this program fails.
std::atomic<bool> g_failNothrowNew{false};
}  // namespace

// The memory comes from the ordinary operator new, so the plain delete that
// frees these objects matches it (AddressSanitizer checks the pairing).
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (g_failNothrowNew) return nullptr;
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Called when a constructor throws after a nothrow new.
void operator delete(void* pointer, const std::nothrow_t&) noexcept {
    ::operator delete(pointer);
}

class TestAsyncThreads : public QObject {
    Q_OBJECT

private slots:
    void workRunsOffThreadAndDoneOnTheContextsThread();
    void emptyDoneStillDeletesTheThread();
    void doneIsDroppedWithItsContext();
    void allocationFailureDropsBothHalves();
};

// Sets flag when the calling thread's QThread object is destroyed.
void watchThreadObject(std::atomic<bool>* flag) {
    QObject::connect(QThread::currentThread(), &QObject::destroyed, [flag] { *flag = true; });
}

void TestAsyncThreads::workRunsOffThreadAndDoneOnTheContextsThread() {
    QObject context;
    std::atomic<QThread*> workThread{nullptr};
    std::atomic<bool> threadDeleted{false};
    QThread* doneThread = nullptr;
    std::atomic<int> order{0};
    std::atomic<int> workStep{0};
    int doneStep = 0;
    mirk_async::ASYNC(
        [&] {
            workThread = QThread::currentThread();
            watchThreadObject(&threadDeleted);
            workStep = ++order;
        },
        [&] {
            doneThread = QThread::currentThread();
            doneStep = ++order;
        },
        &context);
    QTRY_COMPARE(doneStep, 2);
    QCOMPARE(workStep.load(), 1);
    QVERIFY(workThread.load() != QThread::currentThread());
    QCOMPARE(doneThread, QThread::currentThread());
    // The thread object deletes itself once done has run.
    QTRY_VERIFY(threadDeleted.load());
}

void TestAsyncThreads::emptyDoneStillDeletesTheThread() {
    QObject context;
    std::atomic<bool> threadDeleted{false};
    std::atomic<bool> worked{false};
    mirk_async::ASYNC(
        [&] {
            watchThreadObject(&threadDeleted);
            worked = true;
        },
        {}, &context);
    QTRY_VERIFY(worked.load());
    QTRY_VERIFY(threadDeleted.load());
}

void TestAsyncThreads::doneIsDroppedWithItsContext() {
    auto* context = new QObject;
    std::atomic<bool> release{false};
    std::atomic<bool> finished{false};
    std::atomic<QThread*> workThread{nullptr};
    bool doneRan = false;
    mirk_async::ASYNC(
        [&] {
            workThread = QThread::currentThread();
            while (!release) QThread::yieldCurrentThread();
            finished = true;
        },
        [&] { doneRan = true; }, context);
    QTRY_VERIFY(workThread.load() != nullptr);
    delete context;
    release = true;
    QTRY_VERIFY(finished.load());
    QVERIFY(workThread.load()->wait(10000));
    QCoreApplication::processEvents();
    QVERIFY(!doneRan);
    // Nobody else deletes it now.
    delete workThread.load();
}

void TestAsyncThreads::allocationFailureDropsBothHalves() {
    QObject context;
    std::atomic<bool> workRan{false};
    bool doneRan = false;
    g_failNothrowNew = true;
    mirk_async::ASYNC([&] { workRan = true; }, [&] { doneRan = true; }, &context);
    g_failNothrowNew = false;

    // A later request goes through, so by the time its done runs the dropped
    // one would have run too.
    bool laterDone = false;
    mirk_async::ASYNC([] {}, [&] { laterDone = true; }, &context);
    QTRY_VERIFY(laterDone);
    QVERIFY(!workRan.load());
    QVERIFY(!doneRan);
}

QTEST_MAIN(TestAsyncThreads)
#include "test_async_threads.moc"
