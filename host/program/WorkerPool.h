// Runs one task per package in several worker processes forked from this
// one, so that a single-threaded plug-in uses every core. Each worker keeps
// what the main process had loaded (the plug-in) and takes the next index
// from a counter in shared memory, so handing out work costs no message;
// a worker sends one message back per package. The main process receives
// the answers and hands them on in index order.
#ifndef HOST_PROGRAM_WORKERPOOL_H
#define HOST_PROGRAM_WORKERPOOL_H

#include "PackageVerdict.h"

#include <cstddef>
#include <functional>

namespace host {

class WorkerPool {
public:
    using Setup = std::function<void()>;
    using Task = std::function<PackageVerdict(size_t index)>;
    using Delivery = std::function<void(size_t index, PackageVerdict& verdict)>;

    // Calls setup once in each worker, then task(index) for every index
    // below count across `jobs` workers, and deliver(index, verdict) in this
    // process in index order, each as soon as all earlier ones are
    // delivered. A worker that dies is replaced; the package it was
    // checking is delivered with status -1. Throws SetupError when no
    // worker can be started.
    static void Run(size_t count, size_t jobs, const Setup& setup, const Task& task, const Delivery& deliver);

    // The number of processors this process may run on.
    static size_t DefaultJobs();
};

} // namespace host

#endif
