#include "casting/MyLog.h"

#include "casting/Log.h"

MyLog* MyLog::getInstance() {
    static MyLog instance;
    return &instance;
}

void MyLog::initMyLog() {
    zv_log::start("zelvanor", zv_log::defaultLogDir());
    m_started = true;
}
