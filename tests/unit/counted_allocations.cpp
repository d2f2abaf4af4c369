// SPDX-License-Identifier: BSD-3-Clause
#include "counted_allocations.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

using namespace TestSupport;

constexpr std::align_val_t defaultAlignment{__STDCPP_DEFAULT_NEW_ALIGNMENT__};

void* Allocate(std::size_t size, std::align_val_t alignment) noexcept
{
    ++allocations;
    if (allocationsLeft == 0) {
        allocationsLeft = failsOnce ? unlimited : 0;
        return nullptr;
    }
    if (allocationsLeft != unlimited) {
        --allocationsLeft;
    }
    void* memory = nullptr;
    if (posix_memalign(&memory, static_cast<std::size_t>(alignment), size == 0 ? 1 : size) != 0) {
        return nullptr;
    }
    bytesInUse += malloc_usable_size(memory);
    return memory;
}

void* AllocateOrThrow(std::size_t size, std::align_val_t alignment)
{
    if (void* const memory = Allocate(size, alignment)) {
        return memory;
    }
    throw std::bad_alloc();
}

void Free(void* memory) noexcept
{
    bytesInUse -= malloc_usable_size(memory); // zero for a null pointer
    std::free(memory);
}

} // namespace

// Replaces every form, because the sanitizers define some too: memory from one of theirs must not
// reach a `delete` from here.

void* operator new(std::size_t size)
{
    return AllocateOrThrow(size, defaultAlignment);
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return AllocateOrThrow(size, alignment);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size, defaultAlignment);
}

void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return Allocate(size, alignment);
}

void* operator new[](std::size_t size)
{
    return AllocateOrThrow(size, defaultAlignment);
}

void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return AllocateOrThrow(size, alignment);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size, defaultAlignment);
}

void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return Allocate(size, alignment);
}

void operator delete(void* memory) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    Free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept
{
    Free(memory);
}

void operator delete[](void* memory) noexcept
{
    Free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    Free(memory);
}

void operator delete[](void* memory, std::align_val_t) noexcept
{
    Free(memory);
}

void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept
{
    Free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    Free(memory);
}

void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept
{
    Free(memory);
}
