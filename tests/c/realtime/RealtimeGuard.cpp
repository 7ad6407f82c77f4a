// SPDX-License-Identifier: MIT
#include "c/realtime/RealtimeGuard.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <dlfcn.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

namespace
{

thread_local bool guarded = false;
std::atomic<int> allocations{0};
std::atomic<int> locks{0};
std::atomic<int> systemCalls{0};

void note(std::atomic<int>& offences)
{
    if (guarded)
        ++offences;
}

/// The function behind one of ours. Versions: of conditions the C library has two kinds, and an ordinary
/// look-up finds the older.
template <typename Function>
Function* original(const char* name, const char* version = nullptr)
{
    void* found = version != nullptr ? dlvsym(RTLD_NEXT, name, version) : dlsym(RTLD_NEXT, name);
    return reinterpret_cast<Function*>(found);
}

constexpr const char* newConditions = "GLIBC_2.3.2";

/// The trapped call has not been made; it fails.
void trap(int /*signal*/, siginfo_t* /*info*/, void* context)
{
    note(systemCalls);
    static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RAX] = -ENOSYS;
}

/// From now on every system call of this thread is trapped but its end, and the end of a trap.
void watchThisThread()
{
    std::array<sock_filter, 5> program{{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 1, 0),
                                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_rt_sigreturn, 0, 1),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP)}};
    sock_fprog filter{program.size(), program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &filter) != 0)
        throw std::system_error(errno, std::generic_category(), "seccomp");
}

} // namespace

namespace realtime
{

Offences offences()
{
    return {allocations, locks, systemCalls};
}

void runWatched(const std::function<void()>& action)
{
    struct sigaction handler = {};
    handler.sa_sigaction = trap;
    handler.sa_flags = SA_SIGINFO;
    sigaction(SIGSYS, &handler, nullptr);
    std::thread(
        [&]
        {
            std::free(std::malloc(1)); // so that the thread has its heap
            watchThisThread();
            action();
            syscall(SYS_exit, 0); // what the C library does at a thread's end would be trapped
        })
        .join();
}

Guard::Guard()
{
    guarded = true;
}

Guard::~Guard()
{
    guarded = false;
}

} // namespace realtime

// In place of the C library's: a program's functions come before those of its libraries, if it shows them.
#pragma GCC visibility push(default)
extern "C"
{
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* memory, std::size_t size);
    void* __libc_memalign(std::size_t alignment, std::size_t size);
    void __libc_free(void* memory);

    void* malloc(std::size_t size)
    {
        note(allocations);
        return __libc_malloc(size);
    }

    void* calloc(std::size_t count, std::size_t size)
    {
        note(allocations);
        return __libc_calloc(count, size);
    }

    void* realloc(void* memory, std::size_t size)
    {
        note(allocations);
        return __libc_realloc(memory, size);
    }

    void* aligned_alloc(std::size_t alignment, std::size_t size)
    {
        note(allocations);
        return __libc_memalign(alignment, size);
    }

    int posix_memalign(void** memory, std::size_t alignment, std::size_t size)
    {
        note(allocations);
        *memory = __libc_memalign(alignment, size);
        return *memory != nullptr ? 0 : ENOMEM;
    }

    void free(void* memory)
    {
        note(allocations);
        __libc_free(memory);
    }

    int pthread_mutex_lock(pthread_mutex_t* mutex)
    {
        static auto* const actual = original<int(pthread_mutex_t*)>("pthread_mutex_lock");
        note(locks);
        return actual(mutex);
    }

    int pthread_mutex_trylock(pthread_mutex_t* mutex)
    {
        static auto* const actual = original<int(pthread_mutex_t*)>("pthread_mutex_trylock");
        note(locks);
        return actual(mutex);
    }

    int pthread_cond_signal(pthread_cond_t* condition)
    {
        static auto* const actual = original<int(pthread_cond_t*)>("pthread_cond_signal", newConditions);
        note(locks);
        return actual(condition);
    }

    int pthread_cond_broadcast(pthread_cond_t* condition)
    {
        static auto* const actual = original<int(pthread_cond_t*)>("pthread_cond_broadcast", newConditions);
        note(locks);
        return actual(condition);
    }

    int pthread_rwlock_rdlock(pthread_rwlock_t* lock)
    {
        static auto* const actual = original<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
        note(locks);
        return actual(lock);
    }

    int pthread_rwlock_wrlock(pthread_rwlock_t* lock)
    {
        static auto* const actual = original<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
        note(locks);
        return actual(lock);
    }

    int sem_post(sem_t* semaphore)
    {
        static auto* const actual = original<int(sem_t*)>("sem_post");
        note(locks);
        return actual(semaphore);
    }

    int sem_wait(sem_t* semaphore)
    {
        static auto* const actual = original<int(sem_t*)>("sem_wait");
        note(locks);
        return actual(semaphore);
    }
}
#pragma GCC visibility pop
