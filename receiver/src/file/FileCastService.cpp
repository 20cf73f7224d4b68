#include "file/FileCastService.h"

#include <QBuffer>
#include <QImageReader>
#include <QPointer>

#include <chrono>

#include "ApprovalGate.h"
#include "PanelService.h"
#include "casting/Log.h"
#include "file/FileFeed.h"
#include "file/FilePlayer.h"
#include "protocol/WireCodec.h"

namespace receiver {

namespace {

QString stateName(FilePlayer::State state) {
    switch (state) {
        case FilePlayer::State::Playing: return QStringLiteral("playing");
        case FilePlayer::State::Paused: return QStringLiteral("paused");
        case FilePlayer::State::Ended: return QStringLiteral("ended");
        case FilePlayer::State::Failed: return QStringLiteral("error");
        case FilePlayer::State::Starting: break;
    }
    return QStringLiteral("idle");
}

zv::wire::FilePlayState wireState(FilePlayer::State state) {
    switch (state) {
        case FilePlayer::State::Playing: return zv::wire::FILE_STATE_PLAYING;
        case FilePlayer::State::Paused: return zv::wire::FILE_STATE_PAUSED;
        case FilePlayer::State::Ended: return zv::wire::FILE_STATE_ENDED;
        case FilePlayer::State::Failed: return zv::wire::FILE_STATE_ERROR;
        case FilePlayer::State::Starting: break;
    }
    return zv::wire::FILE_STATE_IDLE;
}

qint64 steadyNowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

FileCastService::FileCastService(PanelService* panel, QObject* parent) : QObject(parent), m_panel(panel) {
    registerHandlers();
    m_infoTimer.setInterval(kInfoIntervalMs);
    connect(&m_infoTimer, &QTimer::timeout, this, &FileCastService::sendInfo);
    m_startTimeout.setSingleShot(true);
    connect(&m_startTimeout, &QTimer::timeout, this, [this] {
        if (isActive() && !m_accepted) onPlayerFailed(QStringLiteral("the file did not start in time"));
    });
    connect(m_panel, &PanelService::clientLeft, this, [this](const ClientInfo& client, const QString&) {
        if (isActive() && client.id == m_client) {
            const qint64 who = m_client;
            teardown();
            emit fileStopped(who, QStringLiteral("left"), QStringLiteral("the PC left"));
        }
    });
}

FileCastService::~FileCastService() { teardown(); }

void FileCastService::registerHandlers() {
    using E = zv::wire::Envelope;
    zv::MessageDispatcher<qint64>& d = m_panel->dispatcher();
    d.on(E::kFileStart, [this](const E& e, qint64 client) { onStart(client, e.file_start()); });
    d.on(E::kFileData, [this](const E& e, qint64 client) {
        const auto& data = e.file_data();
        if (!fromCaster(client, data.file_id()) || m_feed == nullptr) return;
        m_feed->deliver(data.request_id(), data.offset(),
                        QByteArray(data.data().data(), static_cast<int>(data.data().size())));
    });
    d.on(E::kFilePause, [this](const E& e, qint64 client) {
        if (!fromCaster(client, e.file_pause().file_id()) || !m_player) return;
        m_player->setPaused(e.file_pause().paused());
        sendInfo();
    });
    d.on(E::kFileSeek, [this](const E& e, qint64 client) {
        if (!fromCaster(client, e.file_seek().file_id()) || !m_player) return;
        m_seeking = true;
        m_awaitFirstFrame = true;
        m_player->seek(std::max<int64_t>(0, e.file_seek().position_ms()));
    });
    d.on(E::kFileVolume, [this](const E& e, qint64 client) {
        if (!fromCaster(client, e.file_volume().file_id())) return;
        m_volume = std::clamp(e.file_volume().volume(), 0, 100);
        if (m_player) m_player->setVolume(m_volume);
        sendInfo();
    });
    d.on(E::kPictureRotate, [this](const E& e, qint64 client) {
        const auto& rotate = e.picture_rotate();
        if (!fromCaster(client, rotate.file_id()) || !m_picture || rotate.degrees() % 90 != 0) return;
        emit pictureRotated(rotate.degrees() % 360000);
    });
    d.on(E::kPictureScale, [this](const E& e, qint64 client) {
        if (!fromCaster(client, e.picture_scale().file_id()) || !m_picture) return;
        emit pictureScaled(std::clamp(e.picture_scale().percent(), 25, 400));
    });
    d.on(E::kPictureTranslate, [this](const E& e, qint64 client) {
        const auto& move = e.picture_translate();
        if (!fromCaster(client, move.file_id()) || !m_picture) return;
        emit pictureMoved(std::clamp(move.dx(), -2048, 2048), std::clamp(move.dy(), -2048, 2048));
    });
    d.on(E::kFileInfoRequest, [this](const E& e, qint64 client) {
        if (fromCaster(client, e.file_info_request().file_id())) sendInfo();
    });
    d.on(E::kFileEnd, [this](const E& e, qint64 client) {
        m_panel->approvals().withdraw(client, ApprovalGate::Kind::File);  // it stopped while waiting
        if (!fromCaster(client, e.file_end().file_id())) return;
        const QString text = QString::fromStdString(e.file_end().text());
        const QString reason = e.file_end().reason() == zv::wire::FileEnd::REASON_VANISHED ? QStringLiteral("vanished")
                                                                                         : QStringLiteral("stopped");
        ZV_LOG(INFO) << " the PC ended file " << m_fileId << " (" << reason.toStdString() << "): " << text.toStdString();
        teardown();
        emit fileStopped(client, reason, text);
    });
}

void FileCastService::send(const google::protobuf::Message& body) { m_panel->sendToClient(m_client, zv::wrap(body)); }

void FileCastService::refuse(qint64 client, uint32_t fileId, const QString& name, const QString& reason,
                             const QString& text) {
    zv::wire::FileRefused refused;
    refused.set_file_id(fileId);
    refused.set_reason(reason.toStdString());
    refused.set_text(text.toStdString());
    m_panel->sendToClient(client, zv::wrap(refused));
    emit fileRefused(client, name, text);
}

void FileCastService::onStart(qint64 client, const zv::wire::FileStart& start) {
    const QString name = QString::fromStdString(start.name()).section(QLatin1Char('/'), -1);
    if (start.file_id() == 0) return;
    if (isActive() && client != m_client) {
        refuse(client, start.file_id(), name, QStringLiteral("busy"), tr("Another PC is showing a file on this panel."));
        return;
    }
    // A PC the panel does not know yet waits for the panel's user; the
    // file is looked at again once they allow it.
    const QPointer<FileCastService> self(this);
    const bool known = m_panel->approvals().admit(
        client, ApprovalGate::Kind::File, false, [self, client, start, name](bool approved) {
            if (self.isNull()) return;
            if (approved) {
                self->onStart(client, start);
            } else {
                self->refuse(client, start.file_id(), name, QStringLiteral("denied"),
                             tr("This panel's user has not allowed this PC to show files."));
            }
        });
    if (!known) {
        zv::wire::FilePending pending;
        pending.set_file_id(start.file_id());
        m_panel->sendToClient(client, zv::wrap(pending));
        return;
    }
    if (start.size() == 0) {
        refuse(client, start.file_id(), name, QStringLiteral("unplayable"), tr("%1 is empty.").arg(name));
        return;
    }
    const bool picture = start.kind() == zv::wire::FILE_KIND_PICTURE;
    if (picture && start.size() > kMaxPictureBytes) {
        refuse(client, start.file_id(), name, QStringLiteral("tooLarge"),
               tr("%1 is too large for a picture (at most %2 MB).").arg(name).arg(kMaxPictureBytes >> 20));
        return;
    }
    if (isActive()) teardown();  // the same PC's next file
    m_client = client;
    m_fileId = start.file_id();
    m_name = name;
    m_kind = start.kind();
    m_picture = picture;
    m_accepted = false;
    m_startClock.start();
    ZV_LOG(INFO) << " client " << client << " casts file " << m_fileId << " \"" << name.toStdString() << "\", "
                 << start.size() << " bytes";
    emit fileStarted(client, name, static_cast<int>(m_kind));

    const uint32_t fileId = m_fileId;
    m_feed = new FileFeed(start.size(), [this, fileId](uint32_t requestId, uint64_t offset, uint32_t length) {
        zv::wire::FileRead read;
        read.set_file_id(fileId);
        read.set_request_id(requestId);
        read.set_offset(offset);
        read.set_length(length);
        send(read);
    }, this);
    m_startTimeout.start(kStartTimeoutMs);
    if (picture) {
        m_feed->fetchAll([this](const QByteArray& bytes) { onPictureBytes(bytes); });
        return;
    }
    m_awaitFirstFrame = true;
    m_player = std::make_unique<FilePlayer>(m_feed, [this](const QImage& frame) {
        // A streaming thread.
        if (m_awaitFirstFrame.exchange(false)) {
            const qint64 at = steadyNowMs();
            const bool afterSeek = m_seeking.exchange(false);
            QMetaObject::invokeMethod(this, [this, at, afterSeek] { emit firstFrame(at, afterSeek); }, Qt::QueuedConnection);
        }
        if (m_frameSink) m_frameSink(frame);
    });
    FilePlayer* player = m_player.get();
    connect(player, &FilePlayer::prerolled, this, [this] {
        m_player->setVolume(m_volume);
        const QSize size = m_player->videoSize();
        if (m_player->videoStreams() > 0) {
            emit videoShown();
        } else {
            emit soundShown(m_name);
        }
        accept(size.width(), size.height(), m_player->durationMs());
    });
    connect(player, &FilePlayer::failed, this, &FileCastService::onPlayerFailed);
    connect(player, &FilePlayer::ended, this, [this] {
        sendInfo();
        zv::wire::FileEnd end;
        end.set_file_id(m_fileId);
        end.set_reason(zv::wire::FileEnd::REASON_FINISHED);
        send(end);
    });
    connect(player, &FilePlayer::stateChanged, this, &FileCastService::sendInfo);
    m_player->start();
}

void FileCastService::onPictureBytes(const QByteArray& bytes) {
    QBuffer buffer;
    buffer.setData(bytes);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);  // the camera's orientation tag
    const QImage picture = reader.read();
    if (picture.isNull()) {
        onPlayerFailed(tr("it is not a picture this panel can show (%1)").arg(reader.errorString()));
        return;
    }
    emit pictureReady(picture);
    emit firstFrame(steadyNowMs(), false);
    accept(picture.width(), picture.height(), -1);
}

void FileCastService::accept(int width, int height, int64_t durationMs) {
    m_accepted = true;
    m_startTimeout.stop();
    zv::wire::FileAccepted accepted;
    accepted.set_file_id(m_fileId);
    accepted.set_duration_ms(durationMs);
    accepted.set_width(width);
    accepted.set_height(height);
    send(accepted);
    ZV_LOG(INFO) << " file " << m_fileId << " plays after " << m_startClock.elapsed() << " ms (" << width << "x"
                 << height << ", " << durationMs << " ms)";
    emit fileAccepted(m_client, m_name, width, height, durationMs, m_player ? m_player->audioStreams() : 0);
    if (!m_picture) {
        sendInfo();
        m_infoTimer.start();
    }
}

void FileCastService::onPlayerFailed(const QString& text) {
    if (!isActive()) return;
    const qint64 client = m_client;
    const uint32_t fileId = m_fileId;
    if (!m_accepted) {
        const QString name = m_name;
        const QString why = tr("This panel cannot play %1: %2").arg(name, text);
        ZV_LOG(WARNING) << " " << why.toStdString();
        teardown();
        refuse(client, fileId, name, QStringLiteral("unplayable"), why);
        return;
    }
    zv::wire::FileEnd end;
    end.set_file_id(fileId);
    end.set_reason(zv::wire::FileEnd::REASON_ERROR);
    end.set_text(text.toStdString());
    send(end);
    teardown();
    emit fileStopped(client, QStringLiteral("error"), text);
}

void FileCastService::stopFile(const QString& text) {
    if (!isActive()) return;
    const qint64 client = m_client;
    zv::wire::FileEnd end;
    end.set_file_id(m_fileId);
    end.set_reason(zv::wire::FileEnd::REASON_STOPPED);
    end.set_text(text.toStdString());
    send(end);
    teardown();
    emit fileStopped(client, QStringLiteral("stopped"), text);
}

void FileCastService::sendInfo() {
    if (!isActive() || m_picture) return;
    zv::wire::FileInfo info;
    info.set_file_id(m_fileId);
    const FilePlayer::State state = m_player ? m_player->state() : FilePlayer::State::Starting;
    const int64_t duration = m_player ? m_player->durationMs() : -1;
    int64_t position = m_player ? m_player->positionMs() : 0;
    if (state == FilePlayer::State::Ended && duration > 0) position = duration;
    info.set_position_ms(position);
    info.set_duration_ms(duration);
    info.set_state(wireState(state));
    info.set_volume(m_volume);
    send(info);
    emit playState(stateName(state), position, duration, m_volume);
}

void FileCastService::teardown() {
    m_infoTimer.stop();
    m_startTimeout.stop();
    if (m_feed != nullptr) m_feed->cancel();
    m_player.reset();  // joins its streaming threads
    delete m_feed;
    m_feed = nullptr;
    m_fileId = 0;
    m_client = 0;
    m_accepted = false;
    m_picture = false;
}

}  // namespace receiver
