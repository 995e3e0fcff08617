#include "lumo/thread.h"

namespace lumo {

// Two pointers deep: a plain pointer to an object would not tell which of its bases is the runnable.
void thread::entry(void* argument)
{
    (*static_cast<runnable**>(argument))->run();
}

runnable_thread::runnable_thread() : _self(nullptr)
{
    tova_thread_create(&_thread);
    tova_event_create(&_stop_event, 0);
}

// A thread that still runs is detached, not joined: the derived object whose run() it executes is destroyed already.
runnable_thread::~runnable_thread()
{
    tova_event_destroy(&_stop_event);
    tova_thread_destroy(&_thread);
}

bool runnable_thread::start()
{
    // Before the thread is there to read it.
    _self = this;
    return tova_thread_start(&_thread, thread::entry, &_self) != 0;
}

void runnable_thread::stop()
{
    tova_event_set(&_stop_event);
}

} // namespace lumo
