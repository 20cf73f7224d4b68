// The two ends of a file's transfer without a network: the PC's FileSource
// (range reads, a file deleted, cut short or replaced while it plays) and the
// panel's FileFeed (reads a blocked player waits for, read-ahead, reads in
// flight, a far seek served first, cancelling, a whole picture).
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <atomic>
#include <future>
#include <thread>
#include <cstdint>
#include <vector>

#include "file/FileFeed.h"
#include "session/FileSource.h"

namespace {

using receiver::FileFeed;

QByteArray pattern(int size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i) {
        const auto at = static_cast<uint32_t>(i);  // wraps, where int would overflow on large files
        bytes[i] = static_cast<char>((at * 131u + at / 7u) & 0xffu);
    }
    return bytes;
}

class FileTransfer : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (QCoreApplication::instance() == nullptr) {
            static int argc = 1;
            static char name[] = "test_file_transfer";
            static char* argv[] = {name, nullptr};
            new QCoreApplication(argc, argv);
        }
    }

    struct Read {
        uint32_t id;
        uint64_t offset;
        uint32_t length;
    };

    // A feed over bytes whose reads are answered only when the test says so.
    std::unique_ptr<FileFeed> feedOver(const QByteArray& file) {
        content = file;
        return std::make_unique<FileFeed>(static_cast<uint64_t>(file.size()), [this](uint32_t id, uint64_t offset, uint32_t length) {
            asked.push_back({id, offset, length});
            maxInFlight = std::max(maxInFlight, static_cast<int>(asked.size() - answered));
        });
    }
    void answerAll(FileFeed& feed) {
        while (answered < asked.size()) {
            const Read r = asked[answered++];
            feed.deliver(r.id, r.offset, content.mid(static_cast<int>(r.offset), static_cast<int>(r.length)));
        }
    }
    // Runs the event loop (answering reads when told) until done is ready.
    template <typename T>
    T serve(FileFeed& feed, std::future<T>& done, bool answer = true) {
        QElapsedTimer clock;
        clock.start();
        while (done.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready && clock.elapsed() < 10000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            if (answer) answerAll(feed);
        }
        return done.get();
    }

    QByteArray content;
    std::vector<Read> asked;
    size_t answered = 0;
    int maxInFlight = 0;
};

TEST_F(FileTransfer, APlayerGetsItsBytesWithReadAheadAndFewReadsInFlight) {
    const QByteArray file = pattern(int(FileFeed::kBlockBytes) * 20 + 1234);
    auto feed = feedOver(file);
    auto done = std::async(std::launch::async, [&] {
        QByteArray got = feed->read(100, 5000);
        got += feed->read(FileFeed::kBlockBytes - 10, 20);  // across two blocks
        return got;
    });
    const QByteArray got = serve(*feed, done);
    EXPECT_EQ(got, file.mid(100, 5000) + file.mid(int(FileFeed::kBlockBytes) - 10, 20));
    ASSERT_FALSE(asked.empty());
    EXPECT_EQ(asked.front().offset, 0u);
    EXPECT_LE(maxInFlight, FileFeed::kMaxInFlight);
    // Read-ahead: more than the two blocks read, but not the whole file.
    QCoreApplication::processEvents();
    answerAll(*feed);
    EXPECT_GT(asked.size(), 2u);
    EXPECT_LT(asked.size(), 20u);
    for (const Read& r : asked) EXPECT_LE(r.length, FileFeed::kBlockBytes);

    // The end: fewer bytes, then none.
    auto tail = std::async(std::launch::async, [&] { return feed->read(uint64_t(file.size()) - 4, 100); });
    EXPECT_EQ(serve(*feed, tail), file.right(4));
    EXPECT_TRUE(feed->read(uint64_t(file.size()), 10).isEmpty());
}

TEST_F(FileTransfer, AFarSeekIsAskedForFirstAndCancellingFreesAWaitingPlayer) {
    const QByteArray file = pattern(int(FileFeed::kBlockBytes) * 64);
    auto feed = feedOver(file);
    auto first = std::async(std::launch::async, [&] { return feed->read(0, 10); });
    EXPECT_EQ(serve(*feed, first), file.left(10));
    QCoreApplication::processEvents();
    const size_t before = asked.size();
    answered = asked.size();  // read-ahead left unanswered: the link is busy

    const uint64_t far = uint64_t(FileFeed::kBlockBytes) * 50 + 7;
    auto seek = std::async(std::launch::async, [&] { return feed->read(far, 100); });
    QElapsedTimer clock;
    clock.start();
    while (asked.size() == before && clock.elapsed() < 5000) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    ASSERT_GT(asked.size(), before);
    EXPECT_EQ(asked[before].offset, uint64_t(FileFeed::kBlockBytes) * 50) << "the far block waits behind read-ahead";
    EXPECT_EQ(serve(*feed, seek), file.mid(int(far), 100));

    // A block nobody answers: the waiting read ends when the cast ends.
    asked.clear();
    answered = 0;
    auto stuck = std::async(std::launch::async, [&] { return feed->read(uint64_t(FileFeed::kBlockBytes) * 30, 10); });
    clock.restart();
    while (asked.empty() && clock.elapsed() < 5000) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    answered = asked.size();
    feed->cancel();
    EXPECT_TRUE(serve(*feed, stuck, false).isEmpty());
}

TEST_F(FileTransfer, APictureArrivesWholeAndForeignDataIsDropped) {
    const QByteArray file = pattern(int(FileFeed::kBlockBytes) * 3 + 99);
    auto feed = feedOver(file);
    QByteArray whole;
    feed->fetchAll([&](const QByteArray& bytes) { whole = bytes; });
    // Data no read asked for, and too much for a block, change nothing.
    feed->deliver(999, 0, file.left(10));
    ASSERT_FALSE(asked.empty());
    feed->deliver(asked.front().id, asked.front().offset, file.left(int(FileFeed::kBlockBytes) + 1));
    EXPECT_TRUE(whole.isEmpty());
    answered = 1;  // that read was spent on the bad answer; the block is asked for again
    QElapsedTimer clock;
    clock.start();
    while (whole.isEmpty() && clock.elapsed() < 5000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        answerAll(*feed);
    }
    EXPECT_EQ(whole, file);
    EXPECT_EQ(asked.size(), 5u) << "four blocks and the one asked again";
}

TEST_F(FileTransfer, TheSourceReadsRangesAndNoticesAFileThatVanishes) {
    QTemporaryDir dir;
    const QString path = dir.filePath("clip.MP4");
    const QByteArray bytes = pattern(100000);
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    zv::FileSource source;
    QString error;
    EXPECT_FALSE(source.open(dir.path(), &error)) << "a folder is not a file";
    EXPECT_FALSE(error.isEmpty());
    error.clear();
    ASSERT_TRUE(source.open(path, &error)) << error.toStdString();
    EXPECT_EQ(source.size(), 100000u);
    EXPECT_EQ(source.kind(), zv::wire::FILE_KIND_VIDEO);
    EXPECT_EQ(zv::FileSource::kindOfName("a/b.JPEG"), zv::wire::FILE_KIND_PICTURE);
    EXPECT_EQ(zv::FileSource::kindOfName("tone.wav"), zv::wire::FILE_KIND_AUDIO);
    EXPECT_EQ(source.contentId().size(), 32);
    EXPECT_EQ(source.read(99990, 100, &error), bytes.right(10));
    EXPECT_EQ(source.read(500, 1000, &error), bytes.mid(500, 1000));
    EXPECT_TRUE(source.read(200000, 10, &error).isEmpty());
    EXPECT_TRUE(error.isEmpty());

    // Cut short: the open descriptor would read less; the cast must end.
    ASSERT_TRUE(QFile::resize(path, 5000));
    EXPECT_FALSE(source.stillThere(&error));
    EXPECT_NE(error.indexOf("cut short"), -1) << error.toStdString();

    // Replaced by another file of the same name.
    error.clear();
    ASSERT_TRUE(QFile::resize(path, 100000));
    ASSERT_TRUE(source.open(path, &error));
    const QString other = dir.filePath("other");
    {
        QFile f(other);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    ASSERT_EQ(std::rename(other.toLocal8Bit().constData(), path.toLocal8Bit().constData()), 0);
    EXPECT_TRUE(source.read(0, 10, &error).isEmpty());
    EXPECT_NE(error.indexOf("replaced"), -1) << error.toStdString();

    // Deleted: an open descriptor still reads, the source must not.
    error.clear();
    ASSERT_TRUE(source.open(path, &error));
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_TRUE(source.read(0, 10, &error).isEmpty());
    EXPECT_NE(error.indexOf("deleted"), -1) << error.toStdString();
}

}  // namespace
