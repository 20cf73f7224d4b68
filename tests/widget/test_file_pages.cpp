// The file-cast viewer without a panel: which page serves a file and which
// siblings it pages through (real files in a temporary folder, some deleted
// while listed), the picture page's fit, zoom, drag and rotation and what
// it hands to the library, the video page's time texts, slider holds and
// play button, the control bar's locks, the 4K warning and the progress
// poll against the real library, which answers without a session.
#include <QtTest/QtTest>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QImage>
#include <QLabel>
#include <QSignalSpy>
#include <QSlider>
#include <QTemporaryDir>

#include <memory>

#include "ui/FileScreenWidget/ControlBtn.h"
#include "ui/FileScreenWidget/FileCastList.h"
#include "ui/FileScreenWidget/FileScreenStackWidget.h"
#include "ui/FileScreenWidget/ImagePage.h"
#include "ui/FileScreenWidget/VideoPage.h"
#include "ui/TipWindows.h"
#include "ui/widgets/SwitchButton.h"
#include "ui/widgets/ToolTip.h"

using namespace qorquicomponents;

namespace {

bool writePicture(const QString& path, int width, int height, QColor colour = Qt::red) {
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image.save(path, "PNG");
}

bool touch(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("x", 1) == 1;
}

// The library calls a page made, in order.
struct Calls {
    QList<QList<QVariant>> list;
    void connectTo(ImagePage* page) {
        QObject::connect(page, &ImagePage::signalLibraryCall, [this](const QString& call, int first, int second) {
            list.append({call, first, second});
        });
    }
    QList<QVariant> last() const { return list.isEmpty() ? QList<QVariant>() : list.last(); }
};

QList<QVariant> call(const char* name, int first, int second) { return {QString::fromLatin1(name), first, second}; }

}  // namespace

class TestFilePages : public QObject {
    Q_OBJECT

private slots:
    void cleanup();
    void classificationAndSiblingLists();
    void pagingSkipsFilesDeletedWhileListed();
    void aPictureLargerThan4KIsWarnedAboutAndStillShown();
    void fitZoomAndDragArithmeticAndWhatThePanelIsTold();
    void rotationAndZoomLimits();
    void zoomButtonsFollowTheLevel();
    void timeTextsSliderHoldsAndThePlayButton();
    void previousAndNextEnablingAndTheBarLock();
    void pollRunsOnceASecondUntilCleared();
    void tipsAndTheAutoHidingBar();
    void cancellingTheOpenDialogStillSendsThePath();
};

void TestFilePages::cleanup() { TipWindows::getInstance()->hide(); }

void TestFilePages::classificationAndSiblingLists() {
    QCOMPARE(FileCastList::fileTypeOf(QStringLiteral("/p/photo.JPG")), static_cast<int>(FileTypePicture));
    QCOMPARE(FileCastList::fileTypeOf(QStringLiteral("/p/photo.png")), static_cast<int>(FileTypePicture));
    for (const char* other : {"/p/photo.Jpg", "/p/photo.jpeg", "/p/clip.wmv", "/p/clip.Mp4", "/p/noext", "/p.x/noext",
                              "/p/doc.pdf"}) {
        QVERIFY2(FileCastList::fileTypeOf(QLatin1String(other)) == FileTypeOther, other);
    }
    for (const char* media : {"a.mp4", "a.MP4", "a.mp3", "a.wav", "a.MP3", "a.WAV"}) {
        QVERIFY2(FileCastList::fileTypeOf(QLatin1String(media)) == FileTypeAudioVideo, media);
    }
    // The document filters are kept as they are, three without the asterisk.
    QVERIFY(FileCastList::nameFiltersOf(QStringLiteral("a.txt")).contains(QStringLiteral(".txt")));

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString root = dir.path() + QLatin1Char('/');
    for (const char* name : {"b.png", "A.JPG", "c.jpg", "d.PNG", "e.Jpg", "f.jpeg", "clip.mp4", "CLIP2.MP4", "s.wav",
                             "t.mp3", "u.WAV", "notes.txt"}) {
        QVERIFY(touch(root + QLatin1String(name)));
    }
    QVERIFY(QFile::link(root + QStringLiteral("b.png"), root + QStringLiteral("link.png")));
    QVERIFY(QDir(root).mkdir(QStringLiteral("folder.png")));

    // Pictures: regular files only, by name ignoring case, the index on the
    // file. The filters match regardless of case, so a mixed-case picture
    // that is refused when chosen is still reached by paging.
    FileCastList pictures;
    QCOMPARE(pictures.load(root + QStringLiteral("c.jpg")), static_cast<int>(FileTypePicture));
    QCOMPARE(pictures.files(),
             QStringList({root + "A.JPG", root + "b.png", root + "c.jpg", root + "d.PNG", root + "e.Jpg"}));
    QCOMPARE(pictures.currentIndex(), 2);
    // The list is appended to: a caller clears it first.
    pictures.load(root + QStringLiteral("A.JPG"));
    QCOMPARE(pictures.files().size(), 10);
    QCOMPARE(pictures.currentIndex(), 5);

    // A sound never pages to a video and the other way round.
    FileCastList sounds;
    QCOMPARE(sounds.load(root + QStringLiteral("t.mp3")), static_cast<int>(FileTypeAudioVideo));
    QCOMPARE(sounds.files(), QStringList({root + "s.wav", root + "t.mp3", root + "u.WAV"}));
    FileCastList videos;
    videos.load(root + QStringLiteral("clip.mp4"));
    QCOMPARE(videos.files(), QStringList({root + "clip.mp4", root + "CLIP2.MP4"}));

    // Type 2 is refused by the viewer with nothing else done.
    FileScreenStackWidget viewer;
    QSignalSpy cast(&viewer, &FileScreenStackWidget::signalCastFile);
    QVERIFY(!viewer.setFileName(root + QStringLiteral("e.Jpg")));
    QVERIFY(!viewer.setFileName(root + QStringLiteral("notes.txt")));
    QCOMPARE(viewer.fileType(), static_cast<int>(FileTypeOther));
    QVERIFY(viewer.fileList().files().isEmpty());
    QVERIFY(!viewer.isPolling());
    QVERIFY(viewer.controlBar()->isHidden());
    QCOMPARE(cast.count(), 0);
}

void TestFilePages::pagingSkipsFilesDeletedWhileListed() {
    QTemporaryDir dir;
    const QString root = dir.path() + QLatin1Char('/');
    for (const char* name : {"1.png", "2.png", "3.png", "4.png", "5.png"}) {
        QVERIFY(writePicture(root + QLatin1String(name), 40, 30));
    }
    FileScreenStackWidget viewer;
    QSignalSpy cast(&viewer, &FileScreenStackWidget::signalCastFile);
    QVERIFY(viewer.setFileName(root + QStringLiteral("1.png")));
    QCOMPARE(viewer.currentPage(), static_cast<QWidget*>(viewer.imagePage()));
    QVERIFY(viewer.controlBar()->isVisibleTo(&viewer));
    QCOMPARE(viewer.fileList().currentIndex(), 0);

    // Previous on the first entry does nothing.
    viewer.onLastPageBtn();
    QCOMPARE(viewer.fileList().currentIndex(), 0);
    QCOMPARE(cast.count(), 0);

    // 2.png goes: next lands on 3.png, which moved up into its place; no tip.
    QVERIFY(QFile::remove(root + QStringLiteral("2.png")));
    viewer.onNextPageBtn();
    QCOMPARE(cast.count(), 1);
    QCOMPARE(cast.last().at(0).toString(), root + QStringLiteral("3.png"));
    QCOMPARE(viewer.fileList().currentIndex(), 1);
    QCOMPARE(viewer.fileList().files().size(), 4);
    QVERIFY(!TipWindows::getInstance()->isVisible());
    QVERIFY(viewer.imagePage()->hasPicture());

    // The last entry goes: the tip, and the index stays on the new last.
    viewer.onNextPageBtn();
    QCOMPARE(viewer.fileList().currentIndex(), 2);
    QVERIFY(QFile::remove(root + QStringLiteral("5.png")));
    viewer.onNextPageBtn();
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("The picture is renamed or deleted"));
    QCOMPARE(viewer.fileList().files(), QStringList({root + "1.png", root + "3.png", root + "4.png"}));
    QCOMPARE(viewer.fileList().currentIndex(), 2);
    QCOMPARE(cast.last().at(0).toString(), root + QStringLiteral("4.png"));
    // Next on the last entry does nothing.
    const int sent = cast.count();
    viewer.onNextPageBtn();
    QCOMPARE(viewer.fileList().currentIndex(), 2);
    QCOMPARE(cast.count(), sent);

    // Backwards over a gone entry: one further back.
    TipWindows::getInstance()->hide();
    QVERIFY(QFile::remove(root + QStringLiteral("3.png")));
    viewer.onLastPageBtn();
    QCOMPARE(viewer.fileList().currentIndex(), 0);
    QCOMPARE(cast.last().at(0).toString(), root + QStringLiteral("1.png"));
    QCOMPARE(viewer.fileList().files().size(), 2);
    QVERIFY(!TipWindows::getInstance()->isVisible());

    // The first entry gone while going back to it: the tip, index 0.
    viewer.onNextPageBtn();
    QCOMPARE(viewer.currentFile(), root + QStringLiteral("4.png"));
    QVERIFY(QFile::remove(root + QStringLiteral("1.png")));
    viewer.onLastPageBtn();
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(viewer.fileList().files(), QStringList({root + "4.png"}));
    QCOMPARE(viewer.fileList().currentIndex(), 0);

    // Everything gone: paging casts nothing and does not fail.
    QVERIFY(QFile::remove(root + QStringLiteral("4.png")));
    const int before = cast.count();
    viewer.onNextPageBtn();
    viewer.onLastPageBtn();
    QCOMPARE(cast.count(), before);

    // Stop empties the list and the picture.
    QSignalSpy stop(&viewer, &FileScreenStackWidget::signalStopScreen);
    viewer.onStopScreen();
    QCOMPARE(stop.count(), 1);
    QVERIFY(viewer.fileList().files().isEmpty());
    QVERIFY(!viewer.imagePage()->hasPicture());
}

void TestFilePages::aPictureLargerThan4KIsWarnedAboutAndStillShown() {
    QTemporaryDir dir;
    const QString exact = dir.path() + QStringLiteral("/a-uhd.png");
    const QString larger = dir.path() + QStringLiteral("/b-larger.png");
    const QString wide = dir.path() + QStringLiteral("/c-wide.png");
    QVERIFY(writePicture(exact, 3840, 2160));
    QVERIFY(writePicture(larger, 3841, 2161));
    QVERIFY(writePicture(wide, 4000, 1000));

    FileScreenStackWidget viewer;
    QVERIFY(viewer.setFileName(exact));
    QTest::qWait(50);
    QVERIFY(!TipWindows::getInstance()->isVisible());
    viewer.onNextPageBtn();
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("Selesct image is lager than 4K"));
    QCOMPARE(TipWindows::getInstance()->displayType(), TipWindowWithDetails);
    QVERIFY(viewer.imagePage()->hasPicture());
    int width = 0, height = 0;
    viewer.imagePage()->getImageSize(width, height);
    QCOMPARE(QSize(width, height), QSize(3841, 2161));
    // Only both sides beyond 4K count.
    TipWindows::getInstance()->hide();
    viewer.onNextPageBtn();
    QCOMPARE(viewer.currentFile(), wide);
    QTest::qWait(50);
    QVERIFY(!TipWindows::getInstance()->isVisible());
}

void TestFilePages::fitZoomAndDragArithmeticAndWhatThePanelIsTold() {
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/square.png");
    QVERIFY(writePicture(path, 200, 200));
    ImagePage page;
    page.resize(800, 400);
    Calls calls;
    calls.connectTo(&page);
    page.readPixmap(path);
    page.setPixmap();
    // Fit: 2 pixels per picture pixel, centred.
    QCOMPARE(page.fitScale(), 2.0f);
    QCOMPARE(page.targetRect(), QRect(200, 0, 400, 400));
    QCOMPARE(page.sourceRect(), QRect(0, 0, 200, 200));

    // At the fit the picture fills the page's height and is narrower than
    // it: neither direction moves.
    page.moveLable(30, 30);
    QCOMPARE(calls.last(), call("translatePicture", 0, 0));
    QCOMPARE(page.offset(), QPointF(0, 0));

    // Zoom in: 125 % of the fit, drawn in eleven 20 ms frames.
    page.scale(1.25f);
    QCOMPARE(calls.last(), call("scalePicture", 125, 0));
    QVERIFY(page.isAnimating());
    QVERIFY(!page.isPanAnimated());
    QTRY_VERIFY(!page.isAnimating());
    QCOMPARE(page.animationStep(), ImagePage::kLastFrame + 1);
    QCOMPARE(page.targetRect(), QRect(150, 0, 500, 400));
    QCOMPARE(page.sourceRect(), QRect(0, 20, 200, 160));

    // Drag down by 30 page pixels: 12 picture pixels, 153/2048 of the page.
    page.moveLable(0, 30);
    QCOMPARE(calls.last(), call("translatePicture", 0, 153));
    QCOMPARE(page.offset(), QPointF(0, 12));
    QCOMPARE(page.sourceRect(), QRect(0, 8, 200, 160));
    // Sideways the zoomed picture is still exactly as wide as the view: refused.
    page.moveLable(10, 0);
    QCOMPARE(calls.last(), call("translatePicture", 0, 0));
    // Beyond the top edge: refused as well, nothing moves.
    page.moveLable(0, 200);
    QCOMPARE(calls.last(), call("translatePicture", 0, 0));
    QCOMPARE(page.offset(), QPointF(0, 12));

    // Dragging with the mouse goes the same way, and every press is told.
    QSignalSpy presses(&page, &ImagePage::signalImageMousePress);
    auto send = [&page](QEvent::Type type, QPoint pos, Qt::MouseButton button, Qt::MouseButtons buttons) {
        QMouseEvent event(type, pos, page.mapToGlobal(pos), button, buttons, Qt::NoModifier);
        QApplication::sendEvent(&page, &event);
    };
    send(QEvent::MouseButtonPress, QPoint(400, 200), Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseMove, QPoint(400, 190), Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, QPoint(400, 190), Qt::LeftButton, Qt::NoButton);
    send(QEvent::MouseButtonPress, QPoint(400, 200), Qt::RightButton, Qt::RightButton);
    // Moving after the left button's release drags nothing.
    send(QEvent::MouseMove, QPoint(300, 100), Qt::NoButton, Qt::RightButton);
    QCOMPARE(presses.count(), 2);
    QCOMPARE(calls.last(), call("translatePicture", 0, -51));
    QCOMPARE(page.offset(), QPointF(0, 8));

    // Zooming back to the fit would show beyond the edge: the view glides
    // back to the centre during the animation.
    page.scale(0.8f);
    QCOMPARE(calls.last(), call("scalePicture", 100, 0));
    QVERIFY(page.isPanAnimated());
    QCOMPARE(page.offset(), QPointF(0, 0));
    QTRY_VERIFY(!page.isAnimating());
    QCOMPARE(page.sourceRect(), QRect(0, 0, 200, 200));
    QCOMPARE(page.targetRect(), QRect(200, 0, 400, 400));

    // A new file starts from a plain view.
    page.reset();
    QCOMPARE(page.currentScale(), 1.0f);
    QCOMPARE(page.angle(), 0);
}

void TestFilePages::rotationAndZoomLimits() {
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/wide.png");
    QVERIFY(writePicture(path, 200, 100));
    ImagePage page;
    page.resize(800, 400);
    Calls calls;
    calls.connectTo(&page);
    page.readPixmap(path);
    page.setPixmap();
    QCOMPARE(page.fitScale(), 4.0f);

    // Six steps in reach 1.25^6 of the fit; a seventh is past four times
    // the fit and is undone without a call.
    const int expected[] = {125, 156, 195, 244, 305, 381};
    for (int percent : expected) {
        page.scale(1.25f);
        QCOMPARE(calls.last(), call("scalePicture", percent, 0));
    }
    const int sent = calls.list.size();
    const float top = page.currentScale();
    page.scale(1.25f);
    QCOMPARE(calls.list.size(), sent);
    QCOMPARE(page.currentScale(), top);

    // Zooming out below the fit keeps the view centred; a quarter of the
    // fit is the floor.
    for (int i = 0; i < 12; ++i) page.scale(0.8f);
    QCOMPARE(calls.last(), call("scalePicture", 26, 0));
    page.scale(0.8f);
    QCOMPARE(calls.last(), call("scalePicture", 26, 0));
    QTRY_VERIFY(!page.isAnimating());
    QVERIFY(qAbs(page.targetRect().center().x() - 400) <= 1);
    QVERIFY(qAbs(page.targetRect().center().y() - 200) <= 1);

    // Four quarter turns clockwise: 90, 180, 270, 360, each followed by a
    // pan back to the middle; the picture is fitted again at every turn.
    calls.list.clear();
    for (int i = 0; i < 4; ++i) page.rotate(true);
    QCOMPARE(calls.list, QList<QList<QVariant>>({call("rotatePicture", 90, 0), call("translatePicture", 0, 0),
                                                 call("rotatePicture", 180, 0), call("translatePicture", 0, 0),
                                                 call("rotatePicture", 270, 0), call("translatePicture", 0, 0),
                                                 call("rotatePicture", 360, 0), call("translatePicture", 0, 0)}));
    page.rotate(true);
    int width = 0, height = 0;
    page.getImageSize(width, height);
    QCOMPARE(QSize(width, height), QSize(100, 200));
    QCOMPARE(page.currentScale(), page.fitScale());
    QCOMPARE(page.fitScale(), 2.0f);
    // Anticlockwise takes a quarter off; the angle never wraps.
    page.rotate(false);
    QCOMPARE(calls.list.at(calls.list.size() - 2), call("rotatePicture", 360, 0));
    page.reset();
    page.rotate(false);
    QCOMPARE(calls.list.at(calls.list.size() - 2), call("rotatePicture", -90, 0));
}

void TestFilePages::zoomButtonsFollowTheLevel() {
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/p.png");
    QVERIFY(writePicture(path, 300, 200));
    FileScreenStackWidget viewer;
    QVERIFY(viewer.setFileName(path));
    ControlBtn* bar = viewer.controlBar();
    QCOMPARE(viewer.zoomLevel(), FileScreenStackWidget::kRestZoomLevel);
    for (int i = 0; i < 6; ++i) {
        QVERIFY(bar->zoomInButton()->isEnabled());
        bar->zoomInButton()->click();
    }
    QCOMPARE(viewer.zoomLevel(), 12);
    QVERIFY(!bar->zoomInButton()->isEnabled());
    QVERIFY(bar->zoomOutButton()->isEnabled());
    // A rotation brings both back and the level to rest.
    bar->rotateLeftButton()->click();
    QCOMPARE(viewer.imagePage()->angle(), -90);
    QCOMPARE(viewer.zoomLevel(), 6);
    QVERIFY(bar->zoomInButton()->isEnabled());
    for (int i = 0; i < 6; ++i) bar->zoomOutButton()->click();
    QCOMPARE(viewer.zoomLevel(), 0);
    QVERIFY(!bar->zoomOutButton()->isEnabled());
    // Zoom-out comes back with the first zoom-in above level 0, not at it.
    bar->zoomInButton()->click();
    QCOMPARE(viewer.zoomLevel(), 1);
    QVERIFY(!bar->zoomOutButton()->isEnabled());
    bar->zoomInButton()->click();
    QVERIFY(bar->zoomOutButton()->isEnabled());
}

void TestFilePages::timeTextsSliderHoldsAndThePlayButton() {
    QCOMPARE(VideoPage::timeText(75), QStringLiteral("01:15"));
    QCOMPARE(VideoPage::timeText(6000), QStringLiteral("100:00"));
    QCOMPARE(VideoPage::timeText(59), QStringLiteral("00:59"));

    VideoPage page;
    page.resize(1008, 600);
    QCOMPARE(page.currentTimeLabel()->text(), QStringLiteral("00:00"));
    QCOMPARE(page.totalTimeLabel()->text(), QStringLiteral("00:00"));
    QList<QPair<QString, int>> calls;
    connect(&page, &VideoPage::signalLibraryCall, this,
            [&calls](const QString& name, int value) { calls.append({name, value}); });

    page.setTextLabel(QStringLiteral("/music/a song.mp3"));
    QCOMPARE(page.captionLabel()->text(), QStringLiteral("a song.mp3 is casting..."));
    page.setTextLabel(QStringLiteral("bare.wav"));
    QCOMPARE(page.captionLabel()->text(), QStringLiteral("bare.wav is casting..."));

    // A report moves the time, the progress and the volume.
    page.onSetCastInfo(30, 120, CAST_FILE_PLAYING, 40);
    QCOMPARE(page.currentTimeLabel()->text(), QStringLiteral("00:30"));
    QCOMPARE(page.totalTimeLabel()->text(), QStringLiteral("02:00"));
    QCOMPARE(page.progressSlider()->value(), 24);
    QCOMPARE(page.volumeSlider()->value(), 40);
    QVERIFY(!page.isPaused());
    // A duration of 0 gives no fault.
    page.onSetCastInfo(0, 0, CAST_FILE_PLAYING, 40);
    QCOMPARE(page.progressSlider()->value(), 0);
    page.onSetCastInfo(30, 120, CAST_FILE_PLAYING, 40);

    // Held progress slider: reports leave it and the times alone; moving
    // shows the time under the handle; releasing seeks there.
    page.progressSlider()->setSliderDown(true);
    QVERIFY(page.isSeeking());
    page.onSetCastInfo(90, 120, CAST_FILE_PLAYING, 55);
    QCOMPARE(page.progressSlider()->value(), 24);
    QCOMPARE(page.currentTimeLabel()->text(), QStringLiteral("00:30"));
    QCOMPARE(page.volumeSlider()->value(), 55);
    page.progressSlider()->setSliderPosition(75);
    QCOMPARE(page.currentTimeLabel()->text(), QStringLiteral("01:30"));
    page.progressSlider()->setSliderDown(false);
    QVERIFY(!page.isSeeking());
    QCOMPARE(calls.last(), qMakePair(QStringLiteral("seekCastFile"), 90));

    // Held volume slider: reports leave it alone; releasing sends the value.
    page.volumeSlider()->setSliderDown(true);
    page.volumeSlider()->setSliderPosition(80);
    page.onSetCastInfo(91, 120, CAST_FILE_PLAYING, 10);
    QCOMPARE(page.volumeSlider()->value(), 80);
    QCOMPARE(page.progressSlider()->value(), 75);
    page.volumeSlider()->setSliderDown(false);
    QCOMPARE(calls.last(), qMakePair(QStringLiteral("setCastFileVolume"), 80));

    // A click on the groove jumps there and seeks at once.
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    QSlider* progress = page.progressSlider();
    QTest::mouseClick(progress, Qt::LeftButton, Qt::NoModifier, QPoint(progress->width() - 2, progress->height() / 2));
    QVERIFY(progress->value() > 90);
    QCOMPARE(calls.last().first, QStringLiteral("seekCastFile"));
    QCOMPARE(calls.last().second, static_cast<int>(120 * progress->value() / 100.0));

    // Play/pause: the click toggles and asks; the tip follows the look.
    QSignalSpy pause(&page, &VideoPage::signalPauseClicked);
    QSignalSpy enter(&page, &VideoPage::signalBtnEnter);
    page.playButton()->click();
    QCOMPARE(pause.last().at(0).toBool(), true);
    QCOMPARE(enter.last().at(0).toString(), QStringLiteral("play"));
    QCOMPARE(page.playButton()->toolTip(), QStringLiteral("play"));
    page.playButton()->click();
    QCOMPARE(pause.last().at(0).toBool(), false);
    QCOMPARE(page.playButton()->toolTip(), QStringLiteral("pause"));
    // The panel's state sets the look when it changes: paused or ended
    // shows "play".
    page.onSetCastInfo(31, 120, CAST_FILE_PAUSED, 10);
    QVERIFY(page.isPaused());
    page.onSetCastInfo(32, 120, CAST_FILE_PLAYING, 10);
    QVERIFY(!page.isPaused());

    // Reset and clear.
    page.reset();
    page.clearPage();
    QCOMPARE(page.currentTimeLabel()->text(), QStringLiteral("00:00"));
    QCOMPARE(page.totalTimeLabel()->text(), QStringLiteral("00:00"));
    QCOMPARE(page.progressSlider()->value(), 0);
    QCOMPARE(page.totalSeconds(), 0);
    QCOMPARE(page.playButton()->toolTip(), QStringLiteral("pause"));
}

void TestFilePages::previousAndNextEnablingAndTheBarLock() {
    VideoPage page;
    // One file: both off.
    page.setDisable(0, 0);
    QVERIFY(!page.lastButton()->isEnabled());
    QVERIFY(!page.nextButton()->isEnabled());
    page.setDisable(2, 1);
    QVERIFY(page.lastButton()->isEnabled());
    QVERIFY(page.nextButton()->isEnabled());
    page.setDisable(2, 2);
    QVERIFY(page.lastButton()->isEnabled());
    QVERIFY(!page.nextButton()->isEnabled());

    ControlBtn bar;
    bar.setDisable(0, 0);
    QVERIFY(!bar.lastButton()->isButtonShow());
    QVERIFY(!bar.nextButton()->isButtonShow());
    QVERIFY(!bar.nextButton()->isEnabled());
    bar.setDisable(3, 1);
    QVERIFY(bar.lastButton()->isButtonShow());
    QVERIFY(bar.nextButton()->isButtonShow());

    // After next both page buttons are locked for a second, then restored
    // from their shown state.
    QSignalSpy next(&bar, &ControlBtn::signalNextBtnClicked);
    bar.nextButton()->click();
    QCOMPARE(next.count(), 1);
    QVERIFY(bar.isPageLocked());
    QVERIFY(!bar.nextButton()->isEnabled());
    QVERIFY(!bar.lastButton()->isEnabled());
    QCOMPARE(bar.nextButton()->property("Status").toString(), QStringLiteral("Disable"));
    bar.nextButton()->click();
    QCOMPARE(next.count(), 1);
    // The viewer reaches the last entry meanwhile.
    bar.setDisable(3, 3);
    QVERIFY(!bar.lastButton()->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(!bar.isPageLocked(), 3000);
    QVERIFY(bar.lastButton()->isEnabled());
    QVERIFY(!bar.nextButton()->isEnabled());
    QCOMPARE(bar.nextButton()->property("Status").toString(), QStringLiteral("Hide"));
    QCOMPARE(bar.lastButton()->property("Status").toString(), QStringLiteral("Show"));
}

void TestFilePages::pollRunsOnceASecondUntilCleared() {
    QTemporaryDir dir;
    const QString sound = dir.path() + QStringLiteral("/a.wav");
    const QString video = dir.path() + QStringLiteral("/b.mp4");
    const QString picture = dir.path() + QStringLiteral("/c.png");
    QVERIFY(touch(sound));
    QVERIFY(touch(video));
    QVERIFY(writePicture(picture, 20, 20));
    FileScreenStackWidget viewer;
    // The poll emits on its worker; counted here on the GUI thread.
    int reports = 0;
    int firstTotal = -1;
    connect(&viewer, &FileScreenStackWidget::signalSetCastInfo, this,
            [&reports, &firstTotal](int, int total, int, int) {
                if (reports++ == 0) firstTotal = total;
            },
            Qt::QueuedConnection);
    QVERIFY(viewer.setFileName(sound));
    QCOMPARE(viewer.currentPage(), static_cast<QWidget*>(viewer.videoPage()));
    QVERIFY(viewer.controlBar()->isHidden());
    QVERIFY(viewer.isPolling());
    QCOMPARE(viewer.fileList().files(), QStringList({sound}));
    QCOMPARE(viewer.videoPage()->captionLabel()->text(), QStringLiteral("a.wav is casting..."));
    // One file: nowhere to page to.
    QVERIFY(!viewer.videoPage()->lastButton()->isEnabled());
    QVERIFY(!viewer.videoPage()->nextButton()->isEnabled());

    // Nothing is cast, so the library's play info stays at zero, which is
    // what the page shows, on the GUI thread.
    QTRY_VERIFY_WITH_TIMEOUT(reports >= 2, 5000);
    QCOMPARE(firstTotal, 0);
    QTRY_VERIFY(viewer.isPlayFinished());
    QCOMPARE(viewer.videoPage()->totalTimeLabel()->text(), QStringLiteral("00:00"));

    // A second audio/video file ends the first poll; one runs.
    viewer.clear();
    QTRY_VERIFY_WITH_TIMEOUT(!viewer.isPolling(), 3000);
    QVERIFY(viewer.setFileName(video));
    QVERIFY(viewer.isPolling());
    // A picture ends it too.
    QVERIFY(viewer.setFileName(picture));
    QTRY_VERIFY_WITH_TIMEOUT(!viewer.isPolling(), 3000);
    QTest::qWait(100);
    const int count = reports;
    QTest::qWait(1200);
    QCOMPARE(reports, count);

    // Destroying the viewer while it polls waits for the poll.
    auto polling = std::make_unique<FileScreenStackWidget>();
    QVERIFY(polling->setFileName(sound));
    QVERIFY(polling->isPolling());
    polling.reset();
}

void TestFilePages::tipsAndTheAutoHidingBar() {
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/p.png");
    QVERIFY(writePicture(path, 30, 30));
    FileScreenStackWidget viewer;
    viewer.show();
    QVERIFY(QTest::qWaitForWindowExposed(&viewer));
    QVERIFY(viewer.setFileName(path));
    ControlBtn* bar = viewer.controlBar();
    QVERIFY(bar->isVisible());
    QCOMPARE(bar->pos(), QPoint(220, 450));
    QVERIFY(viewer.isHideTimerActive());

    // Over the bar it stays; once the pointer left, the timer hides it.
    emit bar->signalControlEnter();
    viewer.onTimeout();
    QVERIFY(bar->isVisible());
    QVERIFY(viewer.isHideTimerActive());
    emit bar->signalControlLeave();
    viewer.onTimeout();
    QVERIFY(bar->isHidden());
    QVERIFY(!viewer.isHideTimerActive());
    // A press on the picture brings it back.
    QTest::mouseClick(viewer.imagePage(), Qt::LeftButton);
    QVERIFY(bar->isVisible());
    QVERIFY(viewer.isHideTimerActive());

    // Text tips: none for an empty text; one while over a button.
    viewer.onShowTextTip(QString(), 0, 0);
    QVERIFY(viewer.toolTip() == nullptr);
    emit bar->signalBtnEnter(QStringLiteral("zoom in"), 0, 0);
    QVERIFY(viewer.toolTip() != nullptr);
    QCOMPARE(viewer.toolTip()->text(), QStringLiteral("zoom in"));
    emit bar->signalBtnLeave();
    QVERIFY(viewer.toolTip() == nullptr);
}

void TestFilePages::cancellingTheOpenDialogStillSendsThePath() {
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/p.png");
    QVERIFY(writePicture(path, 30, 30));
    FileScreenStackWidget viewer;
    QVERIFY(viewer.setFileName(path));
    QSignalSpy cast(&viewer, &FileScreenStackWidget::signalCastFile);
    QTimer closer;
    connect(&closer, &QTimer::timeout, [] {
        if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) dialog->reject();
    });
    closer.start(50);
    viewer.onOpenFileBtn();
    QCOMPARE(cast.count(), 1);
    QCOMPARE(cast.last().at(0).toString(), QString());
    QVERIFY(viewer.fileList().files().isEmpty());
    QCOMPARE(viewer.fileType(), static_cast<int>(FileTypeOther));
}

QTEST_MAIN(TestFilePages)
#include "test_file_pages.moc"
