// Camera and microphone sharing: the pop-up's states and switch, the floating
// button's states and folding, the host check.
#include <QtTest/QtTest>

#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>

#include "BusinessModule/ToolBusiness/ToolBusiness.h"
#include "ui/SettingFeedback/BYOMSetting.h"

using namespace qorquicomponents;

class TestBYOM : public QObject {
    Q_OBJECT

private slots:
    void statesAndSwitch() {
        BYOMSetting setting;
        setting.show();
        setting.setBYOMStatus(BYOMNotSupport);
        QVERIFY(setting.switchBtn()->isHidden());
        QCOMPARE(setting.titleLab()->text(), QStringLiteral("BYOM Not Supported"));
        QCOMPARE(setting.descriptionLab()->text(), QStringLiteral("BYOM is not supported on the current Display."));
        setting.setHostAvailable(false);
        setting.setBYOMStatus(BYOMNotSupport);
        QVERIFY(setting.descriptionLab()->text().contains(QStringLiteral("v4l2loopback")));

        setting.setBYOMStatus(BYOMOpen);
        QVERIFY(!setting.switchBtn()->isHidden());
        QVERIFY(setting.switchState());
        QCOMPARE(setting.switchBtn()->property("status").toString(), QStringLiteral("open"));
        QCOMPARE(setting.titleLab()->text(), QStringLiteral("BYOM Function Enable"));
        setting.setBYOMStatus(BYOMClose);
        QVERIFY(!setting.switchState());

        // Two quick clicks: one request, the switch waits for the answer.
        QSignalSpy clicks(&setting, &BYOMSetting::signalVirtualDeviceClicked);
        setting.switchBtn()->click();
        setting.switchBtn()->click();
        QCOMPARE(clicks.count(), 1);
        QCOMPARE(clicks.at(0).at(0).toBool(), true);
        QCOMPARE(setting.switchBtn()->property("status").toString(), QStringLiteral("loading"));
        setting.setVirtualDeviceBtnEnableClicked(true);
        setting.setBYOMStatus(BYOMOpen);
        setting.switchBtn()->click();
        QCOMPARE(clicks.count(), 2);
        QCOMPARE(clicks.at(1).at(0).toBool(), false);

        QSignalSpy closed(&setting, &BYOMSetting::signalClose);
        setting.close();
        QCOMPARE(closed.count(), 1);
    }

    void floatingButton() {
        QWidget host;
        host.resize(600, 400);
        BYOMButton button(&host);
        button.setIconStatus(BYOMOpen);
        QCOMPARE(button.iconLab()->property("Status").toString(), QStringLiteral("Open"));
        QCOMPARE(button.textLab()->property("Status").toString(), QStringLiteral("Normal"));
        button.setIconStatus(BYOMNotSupport);
        QCOMPARE(button.iconLab()->property("Status").toString(), QStringLiteral("NotSupport"));
        QCOMPARE(button.textLab()->property("Status").toString(), QStringLiteral("NotSupport"));
        button.setLabText(QStringLiteral("Camera and microphone"));
        button.setBtnPoint(QPoint(300, 300));
        button.startTimer();
        QCOMPARE(button.pos(), QPoint(300, 300));
        QCOMPARE(button.foldTimer()->interval(), 10000);
        QVERIFY(button.foldTimer()->isActive());
        // The timer's end folds the button away from its anchor (shortened here).
        button.foldTimer()->start(1);
        QTRY_VERIFY(!button.foldTimer()->isActive());
        QTRY_VERIFY_WITH_TIMEOUT(button.pos().x() > 300, 3000);
        QCOMPARE(button.pos().y(), 300);
    }

    void hostCheck() {
        // No loopback module here: no virtual camera; an unreachable sound server: no microphone.
        QTemporaryDir sys;
        QVERIFY(QDir(sys.path()).mkpath(QStringLiteral("video0")));
        QFile name(sys.path() + QStringLiteral("/video0/name"));
        QVERIFY(name.open(QIODevice::WriteOnly));
        name.write("Integrated Camera\n");
        name.close();
        QVERIFY(ToolBusiness::virtualCameraDevice(sys.path().toStdString()).empty());
        qputenv("PULSE_SERVER", QByteArray("unix:") + sys.path().toUtf8() + "/no-server");
        QVERIFY(!ToolBusiness::virtualMicrophoneHostAvailable());
        QVERIFY(!ToolBusiness::getVirtualDeviceHostAvailable());
    }
};

QTEST_MAIN(TestBYOM)
#include "test_byom.moc"
