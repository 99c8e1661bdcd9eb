#include "Diagnostics/TracerLock.h"

#include <cstddef>
#include <cstdlib>
#include <mutex>

#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

/// Enough for the tracers of nearly every host. More come in blocks of the same size, which are never freed
/// either.
constexpr std::size_t kBlockSize = 256;

struct Block {
    TracerLock locks[kBlockSize];
    Block* before = nullptr;
};

constinit Block g_FirstBlock;
constinit Block* g_LastBlock = &g_FirstBlock;
constinit std::size_t g_UsedOfLastBlock = 0;
constinit TracerLock* g_Free = nullptr;
constinit TracerLock* g_ForLater = nullptr;
constinit StaticLockStruct g_PoolLock;

} // namespace

void TracerBelongings::Release() const {
    if (device != nullptr) {
        TraceDeviceFlush(device);
        TraceDeviceRelease(device);
    }
    std::free(name);
    delete[] buffer;
}

TracerLock* TracerLock::Take() {
    const std::lock_guard guard(g_PoolLock);
    if (TracerLock* const lock = g_Free) {
        g_Free = lock->next_;
        return lock;
    }
    if (g_UsedOfLastBlock == kBlockSize) {
        auto* const block = new Block;
        block->before = g_LastBlock;
        g_LastBlock = block;
        g_UsedOfLastBlock = 0;
    }
    return &g_LastBlock->locks[g_UsedOfLastBlock++];
}

void TracerLock::GiveBack(TracerLock* lock) {
    const std::lock_guard guard(g_PoolLock);
    lock->next_ = g_Free;
    g_Free = lock;
}

void TracerLock::GiveBackLater(TracerLock* lock, const TracerBelongings& belongings) {
    const std::lock_guard guard(g_PoolLock);
    lock->belongings_ = belongings;
    lock->next_ = g_ForLater;
    g_ForLater = lock;
}

TracerLock* TracerLock::NextThatCameFree() {
    const std::lock_guard guard(g_PoolLock);
    for (TracerLock** link = &g_ForLater; *link != nullptr; link = &(*link)->next_) {
        TracerLock* const lock = *link;
        if (lock->try_lock()) {
            lock->unlock();
            *link = lock->next_;
            return lock;
        }
    }
    return nullptr;
}

void TracerLock::Sweep() {
    while (TracerLock* const lock = NextThatCameFree()) {
        lock->belongings_.Release();
        GiveBack(lock);
    }
}

StaticLockStruct& TracerLock::KeepersLock() {
    return g_PoolLock;
}

void TracerLock::RenewAll() {
    std::size_t used = g_UsedOfLastBlock;
    for (Block* block = g_LastBlock; block != nullptr; block = block->before) {
        for (std::size_t i = 0; i < used; ++i) {
            if (!block->locks[i].IsMine()) {
                block->locks[i].Renew();
            }
        }
        used = kBlockSize;
    }
}

} // namespace Nima::Common::System::OS::Diagnostics
