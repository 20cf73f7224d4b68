// Which page serves a file, and the list of its sibling files that the user
// pages through while it is cast. No widgets; GUI thread only.
#pragma once

#include <QString>
#include <QStringList>

namespace qorquicomponents {

enum FileCastType : int {
    FileTypePicture = 0,     // shown by the picture page
    FileTypeAudioVideo = 1,  // played by the panel, controlled on the video page
    FileTypeOther = 2,       // not cast
};

class FileCastList {
public:
    // The type by the text after the last "." (the whole path when there is
    // none), compared case-sensitively: jpg/png/JPG/PNG are pictures,
    // mp4/MP4 and mp3/wav/MP3/WAV audio or video, everything else (Jpg,
    // jpeg, wmv, ...) type 2.
    static int fileTypeOf(const QString& path);
    // The name filters for a file's siblings: the same set of extensions as
    // the file, so paging from a sound never reaches a video.
    static QStringList nameFiltersOf(const QString& path);

    // Takes a file: it becomes the current file and its type is kept. For a
    // picture or audio/video file the matching regular files of its folder
    // (no symbolic links, by name ignoring case) are appended to the list,
    // and the current index moves to the file's own entry. Returns the type.
    int load(const QString& path);

    // One step through the list. moved is false at either end (nothing
    // changes) and when the list ran empty. An entry that no longer exists
    // is dropped and the step lands on its neighbour; endReached tells that
    // it was the list's last (next) or first (previous) entry, where the user
    // is told.
    struct Step {
        bool moved = false;
        bool endReached = false;
    };
    Step next();
    Step previous();

    void clear() { m_files.clear(); }

    const QString& currentFile() const { return m_currentFile; }
    const QStringList& files() const { return m_files; }
    int currentIndex() const { return m_index; }
    int lastIndex() const { return m_files.size() - 1; }
    int type() const { return m_type; }
    const QStringList& nameFilters() const { return m_nameFilters; }

private:
    QString m_currentFile;
    QStringList m_files;
    QStringList m_nameFilters;
    int m_index = 0;
    int m_type = FileTypeOther;
};

}  // namespace qorquicomponents
