// One local file lent to the panel: read by ranges from an open descriptor,
// and watched so that a file deleted, replaced or cut short while the panel
// plays it is noticed (an open descriptor would go on reading the old bytes).
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>

#include "proto/file.pb.h"

namespace zv {

class FileSource {
public:
    FileSource() = default;
    ~FileSource();
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    // Opens a regular file; false and *error (for the user) otherwise.
    bool open(const QString& path, QString* error);
    void close();
    bool isOpen() const { return m_fd >= 0; }

    const QString& path() const { return m_path; }
    QString name() const;
    uint64_t size() const { return m_size; }
    // What the name says the file is.
    wire::FileKind kind() const { return kindOfName(m_path); }
    static wire::FileKind kindOfName(const QString& path);
    // SHA-256 over the size, the modification time and the first 64 KiB.
    QByteArray contentId() const { return m_contentId; }

    // Bytes [offset, offset + length), fewer at the end of the file. Empty
    // with *error set when the file has vanished or was cut short.
    QByteArray read(uint64_t offset, uint32_t length, QString* error);
    // Whether the path still names the file opened, at least as long; the
    // reason for the user otherwise.
    bool stillThere(QString* error) const;

private:
    QString m_path;
    int m_fd = -1;
    uint64_t m_size = 0;
    uint64_t m_device = 0;
    uint64_t m_inode = 0;
    QByteArray m_contentId;
};

}  // namespace zv
