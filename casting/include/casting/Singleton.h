// Process-wide instance of T, created on first use; thread-safe.
#pragma once

template <typename T>
class Singleton {
public:
    static T& getInstance() {
        static T instance;
        return instance;
    }
};
