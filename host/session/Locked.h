// A reference to a shared registry together with the lock on its mutex, held
// for the handle's lifetime, so that no use of the registry forgets the lock.
#ifndef HOST_SESSION_LOCKED_H
#define HOST_SESSION_LOCKED_H

#include <mutex>

namespace host {

template <typename Registry> class Locked {
public:
    explicit Locked(Registry& registry) : m_Registry(registry), m_Guard(registry.lock) {}

    Registry* operator->() const { return &m_Registry; }

private:
    Registry& m_Registry;
    std::lock_guard<std::mutex> m_Guard;
};

} // namespace host

#endif
