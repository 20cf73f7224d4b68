// The four long-lived request threads of the session controller. Each run()
// calls one blocking body on the controller; results go back to the GUI
// thread as the controller's queued signals. A finished thread is started
// again for the next request of its kind.
#pragma once

#include <QThread>

namespace qorquicomponents {

class OrvixUpgrade;

// Log-in: OrvixUpgrade::connectThreadFun().
class ConnectThread : public QThread {
    Q_OBJECT

public:
    ConnectThread(OrvixUpgrade* controller, QObject* parent);

protected:
    void run() override;

private:
    OrvixUpgrade* m_controller;
};

// Screen cast request: OrvixUpgrade::screenThreadFun().
class ScreenThread : public QThread {
    Q_OBJECT

public:
    ScreenThread(OrvixUpgrade* controller, QObject* parent);

protected:
    void run() override;

private:
    OrvixUpgrade* m_controller;
};

// Reverse-screen request: OrvixUpgrade::reverseScreenThreadFun().
class StartShareThread : public QThread {
    Q_OBJECT

public:
    StartShareThread(OrvixUpgrade* controller, QObject* parent);

protected:
    void run() override;

private:
    OrvixUpgrade* m_controller;
};

// File cast request: OrvixUpgrade::fileScreenThreadFun().
class FileScreenThread : public QThread {
    Q_OBJECT

public:
    FileScreenThread(OrvixUpgrade* controller, QObject* parent);

protected:
    void run() override;

private:
    OrvixUpgrade* m_controller;
};

}  // namespace qorquicomponents
