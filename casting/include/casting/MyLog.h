// The client program's own log, kept apart from the library's start so each
// can be started in any order.
#pragma once

class MyLog {
public:
    static MyLog* getInstance();
    void initMyLog();
    bool isStarted() const { return m_started; }

private:
    MyLog() = default;
    bool m_started = false;
};
