#include "session/FileCastSession.h"

#include <cstring>

#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "protocol/WireCodec.h"
#include "session/ClientSession.h"

namespace zv {

namespace {

void copyReason(tagNotifyExceptionParams_& params, const QString& text) {
    const QByteArray bytes = text.toUtf8().left(sizeof params.szReason - 1);
    std::memcpy(params.szReason, bytes.constData(), static_cast<size_t>(bytes.size()));
    params.szReason[bytes.size()] = '\0';
}

CastFileState fromWire(wire::FilePlayState state) {
    switch (state) {
        case wire::FILE_STATE_PLAYING: return CAST_FILE_PLAYING;
        case wire::FILE_STATE_PAUSED: return CAST_FILE_PAUSED;
        case wire::FILE_STATE_ENDED: return CAST_FILE_ENDED;
        case wire::FILE_STATE_ERROR: return CAST_FILE_ERROR;
        default: break;
    }
    return CAST_FILE_IDLE;
}

int clampMs(int64_t ms) { return static_cast<int>(std::clamp<int64_t>(ms, -1, INT32_MAX)); }

}  // namespace

FileCastSession::FileCastSession(ClientSession* session, Raise raise, ReportError reportError, QObject* parent)
    : QObject(parent), m_session(session), m_raise(std::move(raise)), m_reportError(std::move(reportError)) {
    registerHandlers();
    m_watch.setInterval(kWatchIntervalMs);
    connect(&m_watch, &QTimer::timeout, this, [this] {
        QString why;
        if (isActive() && !m_source.stillThere(&why)) vanished(why);
    });
    connect(m_session, &ClientSession::ended, this, [this] {
        if (!isActive()) return;
        ZV_LOG(INFO) << " the session ended: the file cast ends with it";
        finish(CAST_FILE_IDLE);
    });
}

FileCastSession::~FileCastSession() = default;

void FileCastSession::registerHandlers() {
    using E = wire::Envelope;
    MessageDispatcher<>& d = m_session->dispatcher();
    d.on(E::kFileAccepted, [this](const E& e) { onAccepted(e.file_accepted()); });
    d.on(E::kFileRefused, [this](const E& e) { onRefused(e.file_refused()); });
    d.on(E::kFilePending, [this](const E& e) { onPending(e.file_pending()); });
    d.on(E::kFileRead, [this](const E& e) { onRead(e.file_read()); });
    d.on(E::kFileInfo, [this](const E& e) { onInfo(e.file_info()); });
    d.on(E::kFileEnd, [this](const E& e) { onEnd(e.file_end()); });
}

void FileCastSession::send(const google::protobuf::Message& body) { m_session->send(wrap(body)); }

bool FileCastSession::start(const QString& path, QString* error) {
    if (!m_session->isLoggedIn()) {
        *error = QStringLiteral("not logged in to a panel");
        return false;
    }
    if (path.isEmpty()) {
        *error = QStringLiteral("no file given");
        return false;
    }
    if (isActive()) stop(QStringLiteral("another file"));
    if (!m_source.open(path, error)) return false;
    m_fileId = m_nextFileId++;
    m_bytesServed = 0;
    setInfo([](Info& info) {
        info.positionMs = 0;
        info.durationMs = 0;
        info.state = CAST_FILE_IDLE;
    });
    wire::FileStart start;
    start.set_file_id(m_fileId);
    start.set_name(m_source.name().toStdString());
    start.set_size(m_source.size());
    start.set_kind(m_source.kind());
    start.set_content_id(m_source.contentId().constData(), static_cast<size_t>(m_source.contentId().size()));
    ZV_LOG(INFO) << " casting file " << m_fileId << " \"" << start.name() << "\", " << start.size() << " bytes";
    send(start);
    m_watch.start();
    return true;
}

void FileCastSession::stop(const QString& reason) {
    if (!isActive()) return;
    ZV_LOG(INFO) << " stopping file " << m_fileId << ": " << reason.toStdString() << " (" << m_bytesServed
                 << " bytes served)";
    wire::FileEnd end;
    end.set_file_id(m_fileId);
    end.set_reason(wire::FileEnd::REASON_STOPPED);
    end.set_text(reason.toStdString());
    send(end);
    finish(CAST_FILE_IDLE);
}

void FileCastSession::finish(CastFileState state) {
    m_waitingForPanelUser = false;
    m_watch.stop();
    m_source.close();
    m_fileId = 0;
    setInfo([state](Info& info) { info.state = state; });
}

void FileCastSession::vanished(const QString& why) {
    ZV_LOG(WARNING) << " " << why.toStdString() << ": the file cast ends";
    wire::FileEnd end;
    end.set_file_id(m_fileId);
    end.set_reason(wire::FileEnd::REASON_VANISHED);
    end.set_text(why.toStdString());
    send(end);
    finish(CAST_FILE_ERROR);
    m_raise(NOTIFY_SCREEN_CAST_ENDED, [&](tagNotifyExceptionParams_& p) { copyReason(p, why); });
}

void FileCastSession::onPending(const wire::FilePending& pending) {
    if (pending.file_id() != m_fileId || !isActive()) return;
    ZV_LOG(INFO) << " the panel asks its user about file " << pending.file_id();
    m_waitingForPanelUser = true;
    m_reportError(zv_error::WAIT_AUTHORIZATION);
}

void FileCastSession::onAccepted(const wire::FileAccepted& accepted) {
    if (accepted.file_id() != m_fileId || !isActive()) return;
    if (m_waitingForPanelUser) {
        m_waitingForPanelUser = false;
        m_raise(NOTIFY_AUTHORIZATION_GRANTED, nullptr);
    }
    ZV_LOG(INFO) << " the panel plays file " << accepted.file_id() << " (" << accepted.width() << "x"
                 << accepted.height() << ", " << accepted.duration_ms() << " ms)";
    setInfo([&](Info& info) {
        info.durationMs = std::max(0, clampMs(accepted.duration_ms()));
        info.state = CAST_FILE_PLAYING;
    });
}

void FileCastSession::onRefused(const wire::FileRefused& refused) {
    if (refused.file_id() != m_fileId || !isActive()) return;
    const QString text = QString::fromStdString(refused.text().empty() ? refused.reason() : refused.text());
    ZV_LOG(WARNING) << " the panel refused file " << refused.file_id() << ": " << refused.reason() << " "
                    << refused.text();
    finish(CAST_FILE_ERROR);
    m_raise(NOTIFY_REQUEST_REFUSED, [&](tagNotifyExceptionParams_& p) { copyReason(p, text); });
}

void FileCastSession::onRead(const wire::FileRead& read) {
    if (read.file_id() != m_fileId || !isActive()) return;  // a file given up meanwhile
    if (read.length() == 0 || read.length() > kMaxReadBytes) {
        ZV_LOG(WARNING) << " ignoring a read of " << read.length() << " bytes";
        return;
    }
    QString error;
    QByteArray bytes = m_source.read(read.offset(), read.length(), &error);
    if (!error.isEmpty()) {
        vanished(error);
        return;
    }
    m_bytesServed += static_cast<uint64_t>(bytes.size());
    wire::FileData data;
    data.set_file_id(m_fileId);
    data.set_request_id(read.request_id());
    data.set_offset(read.offset());
    data.set_data(bytes.constData(), static_cast<size_t>(bytes.size()));
    send(data);
}

void FileCastSession::onInfo(const wire::FileInfo& info) {
    if (info.file_id() != m_fileId || !isActive()) return;
    setInfo([&](Info& i) {
        i.positionMs = std::max(0, clampMs(info.position_ms()));
        i.durationMs = std::max(0, clampMs(info.duration_ms()));
        i.state = fromWire(info.state());
        i.volume = std::clamp(info.volume(), 0, 100);
    });
}

void FileCastSession::onEnd(const wire::FileEnd& end) {
    if (end.file_id() != m_fileId || !isActive()) return;
    const QString text = QString::fromStdString(end.text());
    ZV_LOG(INFO) << " the panel ended file " << end.file_id() << ": " << end.reason() << " " << end.text();
    if (end.reason() == wire::FileEnd::REASON_FINISHED) {
        // Played to its end: the panel keeps the last picture and the
        // session its file, which a seek can play again.
        setInfo([](Info& info) {
            info.state = CAST_FILE_ENDED;
            info.positionMs = info.durationMs;
        });
        return;
    }
    finish(end.reason() == wire::FileEnd::REASON_ERROR ? CAST_FILE_ERROR : CAST_FILE_IDLE);
    m_raise(NOTIFY_SCREEN_CAST_ENDED, [&](tagNotifyExceptionParams_& p) { copyReason(p, text); });
}

bool FileCastSession::pause(bool paused) {
    if (!isActive()) return false;
    wire::FilePause message;
    message.set_file_id(m_fileId);
    message.set_paused(paused);
    send(message);
    return true;
}

bool FileCastSession::seek(int seconds) {
    if (!isActive()) return false;
    wire::FileSeek message;
    message.set_file_id(m_fileId);
    message.set_position_ms(static_cast<int64_t>(std::max(0, seconds)) * 1000);
    send(message);
    return true;
}

bool FileCastSession::setVolume(int volume) {
    if (!isActive()) return false;
    wire::FileVolume message;
    message.set_file_id(m_fileId);
    message.set_volume(std::clamp(volume, 0, 100));
    send(message);
    return true;
}

bool FileCastSession::rotate(int degrees) {
    if (!isActive()) return false;
    wire::PictureRotate message;
    message.set_file_id(m_fileId);
    message.set_degrees(degrees);
    send(message);
    return true;
}

bool FileCastSession::scale(int percent) {
    if (!isActive()) return false;
    wire::PictureScale message;
    message.set_file_id(m_fileId);
    message.set_percent(std::clamp(percent, 25, 400));
    send(message);
    return true;
}

bool FileCastSession::translate(int dx, int dy) {
    if (!isActive()) return false;
    wire::PictureTranslate message;
    message.set_file_id(m_fileId);
    message.set_dx(std::clamp(dx, -2048, 2048));
    message.set_dy(std::clamp(dy, -2048, 2048));
    send(message);
    return true;
}

bool FileCastSession::requestInfo() {
    if (!isActive()) return false;
    wire::FileInfoRequest message;
    message.set_file_id(m_fileId);
    send(message);
    return true;
}

void FileCastSession::setInfo(const std::function<void(Info&)>& edit) {
    {
        std::lock_guard<std::mutex> lock(m_infoMutex);
        edit(m_info);
        ++m_info.generation;
    }
    m_infoChanged.notify_all();
}

FileCastSession::Info FileCastSession::info() const {
    std::lock_guard<std::mutex> lock(m_infoMutex);
    return m_info;
}

FileCastSession::Info FileCastSession::waitForInfo(uint64_t generation, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(m_infoMutex);
    m_infoChanged.wait_for(lock, timeout, [&] { return m_info.generation > generation; });
    return m_info;
}

}  // namespace zv
