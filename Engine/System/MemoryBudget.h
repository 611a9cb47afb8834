// How much of the machine's memory the engine takes, for what, and the limit beyond which it takes no more. What a scene
// asks for is charged before it is allocated: a message then says what is too large, where otherwise the system would end
// some process or other. What the engine is itself, some 100 MiB, is not counted.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace oxbeam {

struct MachineMemory {
    std::uint64_t physical = 0;              // bytes, as all that follows
    std::uint64_t available = 0;             // without anything else having to give way
    std::optional<std::uint64_t> group;      // limit of the control group
    std::optional<std::uint64_t> addresses;  // limit of the process' address space

    // What this process can have at most, whatever else runs: so that a scene fits always or never.
    std::uint64_t granted() const;
};

OXBEAM_API MachineMemory machineMemory();

struct MemoryLimit {
    std::optional<std::uint64_t> bytes;  // none: everything is allowed
    bool chosen = false;                 // by setMemoryLimit; else a share of what is granted
};

inline constexpr unsigned MemorySharePercent = 80;

// Of the process.
OXBEAM_API MemoryLimit memoryLimit();
// For what is charged from now on.
OXBEAM_API void setMemoryLimit(std::optional<std::uint64_t> bytes);

enum class MemoryUse { Models, Meshes, Textures, Structure, Picture };

// Bytes that are charged at present.
OXBEAM_API std::uint64_t memoryTaken(MemoryUse use);

// A number of bytes that somebody takes, given back when it ends. Safe from any thread.
class OXBEAM_API MemoryCharge {
public:
    MemoryCharge() = default;
    // `what` is it that takes them, for the message. Throws Error(InputOutput) where that goes beyond the limit.
    MemoryCharge(MemoryUse use, std::uint64_t bytes, std::string_view what);
    MemoryCharge(MemoryCharge&& other) noexcept;
    MemoryCharge& operator=(MemoryCharge&& other) noexcept;
    MemoryCharge(const MemoryCharge&) = delete;
    MemoryCharge& operator=(const MemoryCharge&) = delete;
    ~MemoryCharge();

    // More of the same use. Throws as the constructor does, and keeps what there was.
    void add(MemoryCharge more) noexcept;
    // Not so much after all.
    void shrinkTo(std::uint64_t bytes) noexcept;

private:
    MemoryUse m_use = MemoryUse::Models;
    std::uint64_t m_bytes = 0;
};

// "1.5 GiB", "512 MiB".
OXBEAM_API std::string memoryText(std::uint64_t bytes);

// For what is counted where it is kept, before it is made. Throws as a charge does.
inline void requireMemory(MemoryUse use, std::uint64_t bytes, std::string_view what) {
    const MemoryCharge tried(use, bytes, what);
}

}  // namespace oxbeam
