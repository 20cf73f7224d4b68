// The receiver put together: identity, session service, connect codes, LAN
// announcement, passcode registration (and the embedded passcode service),
// the idle screen, and the machine-readable status and commands.
#pragma once

#include <QJsonObject>

#include <QObject>
#include <QSocketNotifier>

#include <memory>

class QJsonObject;

#include "ApprovalGate.h"
#include "ReceiverOptions.h"

namespace zv {
class AvahiRuntime;
class PanelAnnouncer;
class PasscodeRegistration;
class PasscodeService;
struct TlsIdentity;
}  // namespace zv

namespace zv::media {
class VideoView;
}

namespace receiver {

class CastService;
class FileCastService;
class FileView;
class CodeKeeper;
class IdleScreen;
class PanelService;
class ShareService;
class DeviceShareService;

class ReceiverApp : public QObject {
    Q_OBJECT
public:
    explicit ReceiverApp(ReceiverOptions options, QObject* parent = nullptr);
    ~ReceiverApp() override;

    // Starts every part; false with the reason in *error when the panel
    // cannot work (port taken, identity not writable).
    bool start(QString* error);

private:
    void startDiscovery();
    bool startPasscodes(const zv::TlsIdentity& identity, const QString& configFolder, QString* error);
    void watchCommands();
    void onCommand(const QByteArray& line);
    void showScreen();
    void startCasting();
    void askApproval(qint64 client, const QString& host, ApprovalGate::Kind kind);
    uint32_t capabilities() const;
    // Reverse screen (ReceiverApp-share.cpp).
    void startSharing();
    bool onShareCommand(const QString& name);
    void showHome();
    // File casting (ReceiverApp-file.cpp): the service, its view and status lines.
    void startFileCasting();
    bool onFileCommand(const QString& name, const QJsonObject& command);

    ReceiverOptions m_options;
    QString m_address;
    CodeKeeper* m_codes = nullptr;
    PanelService* m_service = nullptr;
    CastService* m_cast = nullptr;
    ShareService* m_share = nullptr;  // the reverse screen
    std::unique_ptr<zv::media::VideoView> m_view;
    std::shared_ptr<zv::AvahiRuntime> m_avahi;
    std::unique_ptr<zv::PanelAnnouncer> m_announcer;
    zv::PasscodeService* m_passcodeService = nullptr;
    zv::PasscodeRegistration* m_passcodeRegistration = nullptr;
    std::unique_ptr<IdleScreen> m_screen;
    QSocketNotifier* m_commands = nullptr;
    QByteArray m_commandBuffer;
    // File casting.
    FileCastService* m_fileCast = nullptr;
    // Camera and microphone sharing (ReceiverApp-devices.cpp).
    void startDeviceSharing();
    DeviceShareService* m_devices = nullptr;
    std::unique_ptr<FileView> m_fileView;
};

}  // namespace receiver
