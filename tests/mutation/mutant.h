// SPDX-License-Identifier: BSD-3-Clause
#pragma once

// Included by scripts/mutate before everything else in the sources that it has rewritten. Each rewritten
// place asks whether its own mutation is the one that the environment selects for this process.

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>

namespace Mutation {

constinit inline int selected = -1;
constinit inline char* reached = nullptr;
constinit inline long size = 0;

/// Mapped, not written: tests run out of memory and of descriptors, and kill their processes.
inline void MapReached(const char* path)
{
    const int file = ::open(path, O_RDWR | O_CLOEXEC);
    struct stat status{};
    if (file < 0 || ::fstat(file, &status) != 0) {
        return;
    }
    const auto length = static_cast<std::size_t>(status.st_size);
    void* const content = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (content != MAP_FAILED) {
        reached = static_cast<char*>(content);
        size = status.st_size;
    }
}

/// Before all other initialisation, and before a test can change the environment.
[[gnu::constructor(101)]] inline void Prepare()
{
    if (const char* const number = std::getenv("EMPORIUM_MUTATION")) {
        selected = std::atoi(number);
    }
    const char* const path = std::getenv("EMPORIUM_MUTATION_REACHED");
    if (path != nullptr && reached == nullptr) {
        MapReached(path);
    }
}

/// True if this process runs with the mutation.
inline bool Is(int number)
{
    if (number < size) {
        reached[number] = 1;
    }
    return number == selected;
}

template <typename Value>
std::remove_cvref_t<Value> OtherThan(const Value& value)
{
    using Plain = std::remove_cvref_t<Value>;
    if constexpr (std::is_same_v<Plain, bool>) {
        return !value;
    } else if constexpr (std::is_arithmetic_v<Plain> || std::is_enum_v<Plain>) {
        return static_cast<Plain>(static_cast<long>(value) + 1);
    } else {
        return Plain{};
    }
}

/// A returned value, of a type that has another one.
template <typename Value>
    requires std::is_default_constructible_v<std::remove_cvref_t<Value>>
Value Returned(int number, Value&& value)
{
    if (!Is(number)) {
        return static_cast<Value&&>(value);
    }
    if constexpr (std::is_reference_v<Value>) {
        static std::remove_cvref_t<Value> other = OtherThan(value);
        return other;
    } else {
        return OtherThan(value);
    }
}

// An operator is replaced without knowing where its operands end: `a < b` becomes `a < Less(5) < b`,
// which has the same precedence.
#define EMPORIUM_MUTATED_OPERATOR(Name, original, mutated)                                         \
    struct Name                                                                                    \
    {                                                                                              \
        explicit Name(int mutation) : number(mutation) {}                                          \
        int number;                                                                                \
    };                                                                                             \
    template <typename Left>                                                                       \
    struct Name##Left                                                                              \
    {                                                                                              \
        const Left& left;                                                                          \
        int number;                                                                                \
    };                                                                                             \
    template <typename Left>                                                                       \
    Name##Left<Left> operator original(const Left & left, Name name)                               \
    {                                                                                              \
        return {left, name.number};                                                                \
    }                                                                                              \
    template <typename Left, typename Right>                                                       \
        requires requires(const Left& left, const Right& right) {                                  \
            left original right;                                                                   \
            mutated;                                                                               \
        }                                                                                          \
    auto operator original(Name##Left<Left> expression, const Right& right)                        \
    {                                                                                              \
        const auto& left = expression.left;                                                        \
        using Value = decltype(left original right);                                               \
        return Is(expression.number) ? static_cast<Value>(mutated) : left original right;          \
    }

EMPORIUM_MUTATED_OPERATOR(Less, <, left <= right)
EMPORIUM_MUTATED_OPERATOR(LessEqual, <=, left < right)
EMPORIUM_MUTATED_OPERATOR(Greater, >, left >= right)
EMPORIUM_MUTATED_OPERATOR(GreaterEqual, >=, left > right)
EMPORIUM_MUTATED_OPERATOR(Equal, ==, left != right)
EMPORIUM_MUTATED_OPERATOR(Unequal, !=, left == right)
EMPORIUM_MUTATED_OPERATOR(Or, |, left)
EMPORIUM_MUTATED_OPERATOR(Plus, +, left - right)
EMPORIUM_MUTATED_OPERATOR(Minus, -, left + right)

#undef EMPORIUM_MUTATED_OPERATOR

} // namespace Mutation
