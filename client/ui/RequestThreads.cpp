#include "ui/RequestThreads.h"

#include "ui/OrvixUpgrade.h"

namespace qorquicomponents {

ConnectThread::ConnectThread(OrvixUpgrade* controller, QObject* parent) : QThread(parent), m_controller(controller) {}

void ConnectThread::run() {
    if (m_controller == nullptr) return;
    m_controller->connectThreadFun();
}

ScreenThread::ScreenThread(OrvixUpgrade* controller, QObject* parent) : QThread(parent), m_controller(controller) {}

void ScreenThread::run() {
    if (m_controller == nullptr) return;
    m_controller->screenThreadFun();
}

StartShareThread::StartShareThread(OrvixUpgrade* controller, QObject* parent)
    : QThread(parent), m_controller(controller) {}

void StartShareThread::run() {
    if (m_controller == nullptr) return;
    m_controller->reverseScreenThreadFun();
}

FileScreenThread::FileScreenThread(OrvixUpgrade* controller, QObject* parent)
    : QThread(parent), m_controller(controller) {}

void FileScreenThread::run() {
    if (m_controller == nullptr) return;
    m_controller->fileScreenThreadFun();
}

}  // namespace qorquicomponents
