#include "ui/FileScreenWidget/FileCastList.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace qorquicomponents {

namespace {

QString extensionOf(const QString& path) {
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    return dot < 0 ? path : path.mid(dot + 1);
}

bool isOneOf(const QString& text, std::initializer_list<const char*> list) {
    for (const char* item : list) {
        if (text == QLatin1String(item)) return true;
    }
    return false;
}

}  // namespace

int FileCastList::fileTypeOf(const QString& path) {
    const QString extension = extensionOf(path);
    if (isOneOf(extension, {"jpg", "png", "JPG", "PNG"})) return FileTypePicture;
    if (isOneOf(extension, {"mp4", "MP4", "mp3", "wav", "MP3", "WAV"})) return FileTypeAudioVideo;
    return FileTypeOther;
}

QStringList FileCastList::nameFiltersOf(const QString& path) {
    const QString extension = extensionOf(path);
    if (isOneOf(extension, {"jpg", "png", "JPG", "PNG"})) {
        return {QStringLiteral("*.jpg"), QStringLiteral("*.png"), QStringLiteral("*.JPG"), QStringLiteral("*.PNG")};
    }
    if (isOneOf(extension, {"mp4", "MP4"})) return {QStringLiteral("*.mp4"), QStringLiteral("*.MP4")};
    if (isOneOf(extension, {"mp3", "wav", "MP3", "WAV"})) {
        return {QStringLiteral("*.mp3"), QStringLiteral("*.wav"), QStringLiteral("*.MP3"), QStringLiteral("*.WAV")};
    }
    // Office and text documents; nothing is listed for them.
    return {QStringLiteral("*.doc"),  QStringLiteral("*.ppt"),  QStringLiteral("*.xlsx"),
            QStringLiteral(".pdf"),   QStringLiteral(".txt"),   QStringLiteral(".TXT"),
            QStringLiteral("*.docx"), QStringLiteral("*.pptx"), QStringLiteral("*.xls")};
}

int FileCastList::load(const QString& path) {
    m_currentFile = path;
    m_type = fileTypeOf(path);
    m_nameFilters = nameFiltersOf(path);
    if (m_type == FileTypeOther) return m_type;

    // The siblings live in the file's own folder.
    QDir folder(QFileInfo(path).absolutePath());
    folder.setNameFilters(m_nameFilters);
    folder.setFilter(QDir::Files | QDir::NoSymLinks);
    folder.setSorting(QDir::Name | QDir::IgnoreCase);
    const QFileInfoList entries = folder.entryInfoList();
    for (const QFileInfo& entry : entries) {
        const QString absolute = entry.absoluteFilePath();
        if (absolute == m_currentFile) m_index = m_files.size();
        m_files.append(absolute);
    }
    return m_type;
}

FileCastList::Step FileCastList::next() {
    Step step;
    if (m_files.isEmpty() || m_index + 1 > lastIndex()) return step;
    ++m_index;
    m_currentFile = m_files.at(m_index);
    if (!QFileInfo::exists(m_currentFile)) {
        step.endReached = m_index == lastIndex();
        m_files.removeAt(m_index);
        if (m_files.isEmpty()) return step;
        // The entry behind the gone one moved up into its place.
        m_index = std::min(m_index, lastIndex());
        m_currentFile = m_files.at(m_index);
    }
    step.moved = true;
    return step;
}

FileCastList::Step FileCastList::previous() {
    Step step;
    if (m_files.isEmpty() || m_index - 1 < 0) return step;
    --m_index;
    if (m_index > lastIndex()) m_index = lastIndex();
    m_currentFile = m_files.at(m_index);
    if (!QFileInfo::exists(m_currentFile)) {
        step.endReached = m_index == 0;
        m_files.removeAt(m_index);
        if (m_files.isEmpty()) return step;
        m_index = std::max(m_index - 1, 0);
        m_currentFile = m_files.at(m_index);
    }
    step.moved = true;
    return step;
}

}  // namespace qorquicomponents
