// The receiver's file casting: the service, the page that shows the file,
// the status lines and the panel-side commands.
#include "ReceiverApp.h"

#include <QGuiApplication>
#include <QJsonObject>
#include <QScreen>

#include <chrono>

#include "IdleScreen.h"
#include "StatusPrinter.h"
#include "file/FileCastService.h"
#include "file/FileView.h"

namespace receiver {

namespace {

qint64 steadyMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

void ReceiverApp::startFileCasting() {
    m_fileCast = new FileCastService(m_service);
    FileCastService* files = m_fileCast;
    connect(files, &FileCastService::fileStarted, this, [](qint64 client, const QString& name, int kind) {
        StatusPrinter::print(QStringLiteral("file-started"), {{QStringLiteral("client"), client},
                                                              {QStringLiteral("name"), name},
                                                              {QStringLiteral("kind"), kind},
                                                              {QStringLiteral("steadyMs"), steadyMs()}});
    });
    connect(files, &FileCastService::fileAccepted, this,
            [](qint64 client, const QString& name, int width, int height, qint64 durationMs, int audioStreams) {
                StatusPrinter::print(QStringLiteral("file-playing"), {{QStringLiteral("client"), client},
                                                                      {QStringLiteral("name"), name},
                                                                      {QStringLiteral("width"), width},
                                                                      {QStringLiteral("height"), height},
                                                                      {QStringLiteral("durationMs"), durationMs},
                                                                      {QStringLiteral("audioStreams"), audioStreams}});
            });
    connect(files, &FileCastService::fileRefused, this, [](qint64 client, const QString& name, const QString& text) {
        StatusPrinter::print(QStringLiteral("file-refused"), {{QStringLiteral("client"), client},
                                                              {QStringLiteral("name"), name},
                                                              {QStringLiteral("text"), text},
                                                              {QStringLiteral("steadyMs"), steadyMs()}});
    });
    connect(files, &FileCastService::firstFrame, this, [](qint64 steadyMs, bool afterSeek) {
        StatusPrinter::print(QStringLiteral("file-first-frame"),
                             {{QStringLiteral("steadyMs"), steadyMs}, {QStringLiteral("afterSeek"), afterSeek}});
    });
    connect(files, &FileCastService::playState, this,
            [](const QString& state, qint64 positionMs, qint64 durationMs, int volume) {
                StatusPrinter::print(QStringLiteral("file-state"), {{QStringLiteral("state"), state},
                                                                    {QStringLiteral("positionMs"), positionMs},
                                                                    {QStringLiteral("durationMs"), durationMs},
                                                                    {QStringLiteral("volume"), volume}});
            });
    connect(files, &FileCastService::fileStopped, this, [this](qint64 client, const QString& reason, const QString& text) {
        StatusPrinter::print(QStringLiteral("file-stopped"), {{QStringLiteral("client"), client},
                                                              {QStringLiteral("reason"), reason},
                                                              {QStringLiteral("text"), text}});
        if (m_fileView) {
            m_fileView->clear();
            m_fileView->hide();
        }
        if (m_screen && reason == QLatin1String("vanished")) m_screen->setNotice(tr("The file cast ended: %1").arg(text));
    });
    if (m_options.headless) return;

    m_fileView = std::make_unique<FileView>();
    m_fileView->setWindowTitle(QStringLiteral("Zelvanor Receiver - %1").arg(m_options.name));
    FileView* view = m_fileView.get();
    files->setFrameSink([view](const QImage& frame) { view->presentFrame(frame); });
    auto show = [this, view] {
        if (m_options.windowed) {
            view->resize(m_screen ? m_screen->size() : QSize(1280, 720));
            view->show();
        } else {
            // Shown again after a hide, the window manager may give it its
            // last normal size: ask for the whole screen each time.
            if (QGuiApplication::primaryScreen() != nullptr) view->setGeometry(QGuiApplication::primaryScreen()->geometry());
            view->showFullScreen();
        }
        view->raise();
    };
    connect(files, &FileCastService::pictureReady, view, [view, show](const QImage& picture) {
        view->showPicture(picture);
        show();
    });
    connect(files, &FileCastService::videoShown, view, [view, show] {
        view->showVideo();
        show();
    });
    connect(files, &FileCastService::soundShown, view, [view, show](const QString& name) {
        view->showSound(name);
        show();
    });
    auto printView = [view] {
        StatusPrinter::print(QStringLiteral("file-view"), {{QStringLiteral("rotation"), view->rotation()},
                                                           {QStringLiteral("percent"), view->scalePercent()},
                                                           {QStringLiteral("panX"), qRound(view->pan().x())},
                                                           {QStringLiteral("panY"), qRound(view->pan().y())}});
    };
    connect(files, &FileCastService::pictureRotated, view, [view, printView](int degrees) {
        view->setRotation(degrees);
        printView();
    });
    connect(files, &FileCastService::pictureScaled, view, [view, printView](int percent) {
        view->setScalePercent(percent);
        printView();
    });
    connect(files, &FileCastService::pictureMoved, view, [view, printView](int dx, int dy) {
        view->translateBy(dx, dy);
        printView();
    });
}

bool ReceiverApp::onFileCommand(const QString& name, const QJsonObject& command) {
    if (name == QLatin1String("stop-file")) {
        m_fileCast->stopFile(QStringLiteral("stopped on the panel"));
        return true;
    }
    if (name == QLatin1String("file-snapshot")) {
        // The file page as shown, for kiosks and tests.
        const QString path = command.value(QStringLiteral("path")).toString();
        const QImage page = m_fileView ? m_fileView->render() : QImage();
        const bool saved = !page.isNull() && !path.isEmpty() && page.save(path, "PNG");
        StatusPrinter::print(QStringLiteral("file-snapshot"), {{QStringLiteral("path"), path},
                                                               {QStringLiteral("saved"), saved},
                                                               {QStringLiteral("width"), page.width()},
                                                               {QStringLiteral("height"), page.height()}});
        return true;
    }
    return false;
}

}  // namespace receiver
