#include "session/FileSource.h"

#include <QCryptographicHash>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zv {

FileSource::~FileSource() { close(); }

void FileSource::close() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
}

QString FileSource::name() const { return QFileInfo(m_path).fileName(); }

wire::FileKind FileSource::kindOfName(const QString& path) {
    const QString suffix = QFileInfo(path).suffix().toLower();
    static const QStringList pictures{"png", "jpg", "jpeg", "bmp", "gif", "webp"};
    static const QStringList sounds{"mp3", "wav", "ogg", "oga", "opus", "flac", "m4a", "aac", "wma"};
    if (pictures.contains(suffix)) return wire::FILE_KIND_PICTURE;
    if (sounds.contains(suffix)) return wire::FILE_KIND_AUDIO;
    return wire::FILE_KIND_VIDEO;  // the panel finds out by content
}

bool FileSource::open(const QString& path, QString* error) {
    close();
    m_path = path;
    const QByteArray local = QFile::encodeName(path);
    m_fd = ::open(local.constData(), O_RDONLY | O_CLOEXEC);
    struct stat info {};
    if (m_fd < 0 || ::fstat(m_fd, &info) != 0) {
        *error = QStringLiteral("cannot open %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        close();
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *error = QStringLiteral("%1 is not a file").arg(path);
        close();
        return false;
    }
    m_size = static_cast<uint64_t>(info.st_size);
    m_device = static_cast<uint64_t>(info.st_dev);
    m_inode = static_cast<uint64_t>(info.st_ino);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(QByteArray::number(static_cast<qulonglong>(m_size)));
    hash.addData(QByteArray::number(static_cast<qlonglong>(info.st_mtim.tv_sec)));
    hash.addData(QByteArray::number(static_cast<qlonglong>(info.st_mtim.tv_nsec)));
    QString readError;
    hash.addData(read(0, 64 * 1024, &readError));
    m_contentId = hash.result();
    return true;
}

QByteArray FileSource::read(uint64_t offset, uint32_t length, QString* error) {
    if (m_fd < 0) {
        *error = QStringLiteral("no file open");
        return {};
    }
    if (!stillThere(error)) return {};
    if (offset >= m_size) return {};
    const uint64_t wanted = std::min<uint64_t>(length, m_size - offset);
    QByteArray bytes(static_cast<int>(wanted), Qt::Uninitialized);
    uint64_t done = 0;
    while (done < wanted) {
        const ssize_t n = ::pread(m_fd, bytes.data() + done, wanted - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *error = n == 0 ? QStringLiteral("%1 was cut short while it played").arg(name())
                            : QStringLiteral("cannot read %1: %2").arg(name(), QString::fromLocal8Bit(std::strerror(errno)));
            return {};
        }
        done += static_cast<uint64_t>(n);
    }
    return bytes;
}

bool FileSource::stillThere(QString* error) const {
    struct stat info {};
    if (::stat(QFile::encodeName(m_path).constData(), &info) != 0) {
        *error = QStringLiteral("%1 was deleted while it played").arg(name());
        return false;
    }
    if (static_cast<uint64_t>(info.st_dev) != m_device || static_cast<uint64_t>(info.st_ino) != m_inode) {
        *error = QStringLiteral("%1 was replaced while it played").arg(name());
        return false;
    }
    if (static_cast<uint64_t>(info.st_size) < m_size) {
        *error = QStringLiteral("%1 was cut short while it played").arg(name());
        return false;
    }
    return true;
}

}  // namespace zv
