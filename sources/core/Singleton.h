// The process-wide instance of a class: _Self is the one instance (null when
// there is none) and _Count says how many times it has been acquired.
#ifndef SIGNING_SINGLETON_H
#define SIGNING_SINGLETON_H

template <class T> class Singleton {
public:
    virtual ~Singleton() { _Self = nullptr; }

    // Creates the instance on first use and counts the acquisition. There is
    // no release: the instance lives until the process ends.
    static T* Acquire() {
        if (_Self == nullptr) {
            _Self = new T();
        }
        ++_Count;
        return _Self;
    }

    // The instance, created on first use, without counting an acquisition.
    static T* Instance() {
        if (_Self == nullptr) {
            _Self = new T();
        }
        return _Self;
    }

    static T* _Self;
    static unsigned int _Count;
};

template <class T> T* Singleton<T>::_Self = nullptr;
template <class T> unsigned int Singleton<T>::_Count = 0;

#endif
