#include "platform/Handles.h"

#include "platform/Cancellation.h"

#include <cerrno>

namespace {

handle_helper* AsHandle(void* handle) {
    return static_cast<handle_helper*>(handle);
}

void* AsVoid(handle_helper* handle) {
    return handle;
}

} // namespace

using Nima::Common::System::OS::Diagnostics::CancellationDelay;

int event_helper::wait(int /*timeout*/) {
    pthread_mutex_lock(&mutex_);
    while (!signalled_) {
        pthread_cond_wait(&condition_, &mutex_);
    }
    pthread_mutex_unlock(&mutex_);
    return 0;
}

void event_helper::Set() {
    pthread_mutex_lock(&mutex_);
    signalled_ = true;
    pthread_cond_broadcast(&condition_);
    pthread_mutex_unlock(&mutex_);
}

int event_helper::close() {
    pthread_mutex_destroy(&mutex_);
    pthread_cond_destroy(&condition_);
    return 0;
}

int semaphore_helper::wait(int /*timeout*/) {
    pthread_mutex_lock(&mutex_);
    return 0;
}

int semaphore_helper::close() {
    pthread_mutex_destroy(&mutex_);
    return 0;
}

int critical_section_helper::wait(int /*timeout*/) {
    return lock();
}

int critical_section_helper::close() {
    return pthread_mutex_destroy(&mutex_);
}

thread_helper::thread_helper(void* (*start)(void*), void* argument)
    : started_(pthread_create(&id_, nullptr, start, argument) == 0) {}

int thread_helper::wait(int /*timeout*/) {
    return started_ ? pthread_join(id_, nullptr) : ESRCH;
}

int thread_helper::close() {
    return 1;
}

HandleGuard::~HandleGuard() {
    const CancellationDelay delay;
    _close_handle_helper(handle_);
}

int _close_handle_helper(void* handle) {
    if (!IsValidHandle(handle)) {
        return 1;
    }
    const bool failed = AsHandle(handle)->close() != 0;
    delete AsHandle(handle);
    return failed ? 1 : 0;
}

int _wait_handle_helper(void* handle, long timeout) {
    return AsHandle(handle)->wait(static_cast<int>(timeout));
}

void* _create_event_helper(bool /*manualReset*/, bool initialState, const wchar_t* /*name*/) {
    return AsVoid(new event_helper(initialState));
}

void* _create_semaphore_helper(int /*security*/, int initialCount, int /*maximumCount*/,
                               const wchar_t* /*name*/) {
    auto* semaphore = new semaphore_helper;
    if (initialCount == 0) {
        semaphore->wait(0);
    }
    return AsVoid(semaphore);
}

int _create_critical_section_helper(void** out) {
    auto* section = new critical_section_helper;
    const int result = section->Create();
    *out = AsVoid(section);
    return result;
}

int _enter_critical_section_helper(void* criticalSection) {
    return AsCriticalSection(criticalSection)->lock();
}

int _leave_critical_section_helper(void* criticalSection) {
    return AsCriticalSection(criticalSection)->unlock();
}

void _delete_critical_section_helper(void** criticalSection) {
    AsHandle(*criticalSection)->close();
    delete AsHandle(*criticalSection);
    *criticalSection = nullptr;
}

void* _create_thread_helper(void* (*start)(void*), void* argument) {
    return AsVoid(new thread_helper(start, argument));
}

int _get_thread_priority_helper(void* thread) {
    // Kernel thread identifiers are below this. No object has such a low address.
    constexpr std::uintptr_t kMaxKernelThreadId = sizeof(void*) == 4 ? 0x8000 : 0x400000;
    pthread_t id = pthread_self();
    if (reinterpret_cast<std::uintptr_t>(thread) > kMaxKernelThreadId) {
        const auto* helper = static_cast<thread_helper*>(AsHandle(thread));
        if (!helper->started()) {
            return 0;
        }
        id = helper->id();
    }
    int policy = 0;
    sched_param parameters{};
    return pthread_getschedparam(id, &policy, &parameters) == 0 ? parameters.sched_priority : 0;
}
