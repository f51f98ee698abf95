#include "dsp/RealTimeWatch.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cstdlib>

namespace {

thread_local bool watching = false;
thread_local std::size_t offenceCount = 0;

}  // namespace

RealTimeWatch::RealTimeWatch() {
    offenceCount = 0;
    watching = true;
}

RealTimeWatch::~RealTimeWatch() {
    watching = false;
}

std::size_t RealTimeWatch::offences() const {
    return offenceCount;
}

#ifndef VESK_SANITIZED

namespace {

void note() {
    if (watching)
        ++offenceCount;
}

}  // namespace

// The C library's functions are replaced for the whole process, by these.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) {
    note();
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    note();
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    note();
    return __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    note();
    return __libc_memalign(alignment, size);
}

void free(void* memory) {
    if (memory != nullptr)
        note();
    __libc_free(memory);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    using Lock = int (*)(pthread_mutex_t*);
    static const auto lock = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    note();
    return lock(mutex);
}
}

#endif
