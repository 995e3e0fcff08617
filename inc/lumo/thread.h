// An object that runs, and one that runs on a thread of its own with a way to be told to stop.
//
// Stopping has two steps: stop() only requests it, and joining waits for the end, so that several workers can be asked
// first and joined afterwards. run() tests the stop event between two pieces of work, or waits for it.
#pragma once

#include "lumo/tova/base.h"
#include "lumo/tova/event.h"
#include "lumo/tova/thread.h"

namespace lumo {

/// Something with a run operation. Not owned and not deleted through this interface, hence no public destructor.
class runnable
{
public:
    /// Does the work on the calling thread; the result is the implementer's. Must not throw: on a thread of its own
    /// there is nobody to catch it.
    virtual int run() = 0;

protected:
    ~runnable() = default;
};

/// The entry of threads that run a runnable.
struct thread
{
    /// `argument` points to a pointer to the runnable; runs it. The pointer must stay valid until the thread ends.
    TOVA_API static void entry(void* argument);
};

/// A runnable with a thread of its own and a stop event.
///
/// The owner starts it once, later calls stop() and joins the thread before the object goes: a derived class's
/// destructor comes too late to end a thread that still calls the derived class's run().
class TOVA_API runnable_thread : public runnable
{
public:
    /// Makes the records of the thread and of the stop event; nothing runs yet.
    runnable_thread();

    /// What the thread does; it ends when this returns.
    int run() override = 0;

    /// Asks the thread to stop; does not wait. Any thread, any number of times. The request is never taken back.
    virtual void stop();

    /// Starts the thread, which calls run(). Returns whether it was created. Starting a running thread aborts with an
    /// assertion.
    virtual bool start();

    /// Destroys the stop event, then the thread's record. Join the thread before.
    virtual ~runnable_thread();

    runnable_thread(const runnable_thread&) = delete;
    runnable_thread& operator=(const runnable_thread&) = delete;

protected:
    /// Whose run() the thread calls: this object, from start() on.
    runnable* _self;
    tova_thread _thread; ///< the system's thread, for derived classes to join
    /// Manual reset: set by the first stop() and from then on.
    tova_event _stop_event;
};

} // namespace lumo
