// The library's minimal shared pointer and the byte record it carries.
#ifndef SIGNING_SHARED_PTR_H
#define SIGNING_SHARED_PTR_H

#include <cstdint>

// A byte range; when owned is 1 the record releases its bytes (array
// delete) when it dies.
struct binary {
    unsigned char* data;
    uint32_t length;
    uint32_t owned;

    binary() : data(nullptr), length(0), owned(0) {}
    binary(unsigned char* bytes, uint32_t size, uint32_t owns) : data(bytes), length(size), owned(owns) {}
    ~binary() {
        if (owned == 1) {
            delete[] data;
        }
    }
    binary(const binary&) = delete;
    binary& operator=(const binary&) = delete;
};

namespace cpp11 {

// A pointer to the object and a pointer to a separately allocated 16-bit
// reference count that starts at 1. The last owner deletes both.
template <class T> class shared_ptr {
public:
    shared_ptr() : _Object(nullptr), _References(nullptr) {}
    explicit shared_ptr(T* object) : _Object(object), _References(nullptr) {
        try {
            _References = new uint16_t(1);
        } catch (...) {
            delete object;
            throw;
        }
    }
    shared_ptr(const shared_ptr& other) : _Object(other._Object), _References(other._References) {
        if (_References != nullptr) {
            ++*_References;
        }
    }
    shared_ptr& operator=(const shared_ptr& other) {
        if (this != &other) {
            Release();
            _Object = other._Object;
            _References = other._References;
            if (_References != nullptr) {
                ++*_References;
            }
        }
        return *this;
    }
    ~shared_ptr() { Release(); }

    T* get() const { return _Object; }
    T* operator->() const { return _Object; }
    T& operator*() const { return *_Object; }
    explicit operator bool() const { return _Object != nullptr; }
    // Owners sharing the object; 0 for an empty pointer.
    uint16_t use_count() const { return _References != nullptr ? *_References : 0; }

private:
    void Release() {
        if (_References != nullptr && --*_References == 0) {
            delete _Object;
            delete _References;
        }
        _Object = nullptr;
        _References = nullptr;
    }

    T* _Object;
    uint16_t* _References;
};

} // namespace cpp11

#endif
